#include "linux/system/LinuxAppearance.h"

#include <functional>
#include <utility>

#include <QtCore/QEvent>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusPendingCallWatcher>
#include <QtDBus/QDBusServiceWatcher>
#include <QtDBus/QDBusVariant>
#include <QtGui/QGuiApplication>
#include <QtGui/QPalette>

#include "linux/system/HostGround.h"

namespace marigold {

namespace {

constexpr QLatin1String service("org.freedesktop.portal.Desktop");
constexpr QLatin1String object("/org/freedesktop/portal/desktop");
constexpr QLatin1String interface("org.freedesktop.portal.Settings");
constexpr QLatin1String anyDesktop("org.freedesktop.appearance");
// Of GNOME's own settings, those that older portals do not have under the common names.
constexpr QLatin1String gnome("org.gnome.desktop.interface");
constexpr QLatin1String gnomeAccess("org.gnome.desktop.a11y.interface");

// What the portal says; as it stands here, nothing.
struct PortalSettings {
  uint colorScheme = 0;  // 1 prefers dark, 2 prefers light
  uint contrast = 0;     // 1 prefers more
  uint motion = 0;       // 1 prefers less
  bool gnomeAnimates = true;
  bool gnomeHighContrast = false;

  // Takes one setting in; an unknown one, or one of another type, changes nothing.
  void take(const QString& space, const QString& key, QVariant value) {
    // `SettingChanged` and `ReadAll` wrap a value in one variant, `Read` and some portals in two.
    while (value.userType() == qMetaTypeId<QDBusVariant>()) {
      value = qvariant_cast<QDBusVariant>(value).variant();
    }
    if (value.userType() == QMetaType::UInt && space == anyDesktop) {
      if (key == QLatin1String("color-scheme")) {
        colorScheme = value.toUInt();
      } else if (key == QLatin1String("contrast")) {
        contrast = value.toUInt();
      } else if (key == QLatin1String("reduced-motion")) {
        motion = value.toUInt();
      }
    } else if (value.userType() == QMetaType::Bool) {
      if (space == gnome && key == QLatin1String("enable-animations")) {
        gnomeAnimates = value.toBool();
      } else if (space == gnomeAccess && key == QLatin1String("high-contrast")) {
        gnomeHighContrast = value.toBool();
      }
    }
  }
};

bool hasWindows() {
  return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;
}

// Without windows Qt has no palette to ask for.
QPalette themePalette() {
  return hasWindows() ? QGuiApplication::palette() : QPalette();
}

bool isDark(const QPalette& palette) {
  return qGray(palette.color(QPalette::Window).rgb()) <
         qGray(palette.color(QPalette::WindowText).rgb());
}

// What the toolkit's colours tell of the bar. Those it has of its own, where no theme of the
// desktop gave it others, tell nothing.
DarkMenuBar paletteGround(const QPalette& palette) {
  if (!hasWindows()) {
    return DarkMenuBar::unknown;
  }
  constexpr QRgb toolkitsOwn = 0xFFEFEFEF;
  if (palette.color(QPalette::Window).rgb() == toolkitsOwn) {
    return DarkMenuBar::unknown;
  }
  return isDark(palette) ? DarkMenuBar::yes : DarkMenuBar::no;
}

}  // namespace

// The bar, the portal and the palette: calls `onNews` whenever one of them may say something else.
class LinuxAppearance::Sources final : public QObject {
  Q_OBJECT

 public:
  // `before` are the sources of an earlier connection, if there were any.
  Sources(QDBusConnection bus, std::function<void()> onNews, const Sources* before = nullptr)
      : bus_(std::move(bus)),
        onNews_(std::move(onNews)),
        host_(bus_, onNews_),
        portalStarts_(service, bus_, QDBusServiceWatcher::WatchForRegistration),
        said_(before == nullptr ? PortalSettings() : before->said_),
        themes_(before != nullptr ? before->themes_ : themePalette()) {
    QCoreApplication::instance()->installEventFilter(this);
    // Qt does not know its own type until then, and would refuse the slot.
    qDBusRegisterMetaType<QDBusVariant>();
    bus_.connect(service, object, interface, QStringLiteral("SettingChanged"), this,
                 SLOT(settingChanged(QString, QString, QDBusVariant)));
    connect(&portalStarts_, &QDBusServiceWatcher::serviceRegistered, this, [this] { ask(); });
    ask();
  }

  [[nodiscard]] AppearanceSettings settings() const {
    return {.darkMenuBar = ground(),
            .increaseContrast = said_.contrast == 1 || said_.gnomeHighContrast,
            .reduceMotion = said_.motion == 1 || !said_.gnomeAnimates,
            .darkWindows = hasWindows() && windowsAreDark()};
  }

  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::ApplicationPaletteChange &&
        watched == QCoreApplication::instance()) {
      if (!coloring_) {
        themes_ = QGuiApplication::palette();
      }
      color();
      onNews_();
    }
    return false;
  }

 private:
  [[nodiscard]] DarkMenuBar ground() const {
    if (const DarkMenuBar said = host_.ground(); said != DarkMenuBar::unknown) {
      return said;
    }
    switch (said_.colorScheme) {
      case 1:
        return DarkMenuBar::yes;
      case 2:
        return DarkMenuBar::no;
      default:
        return paletteGround(themes_);
    }
  }

  [[nodiscard]] bool windowsAreDark() const {
    return said_.colorScheme == 1 || (said_.colorScheme != 2 && isDark(themes_));
  }

  Q_SLOT void settingChanged(const QString& space, const QString& key, const QDBusVariant& value) {
    said_.take(space, key, value.variant());
    color();
    onNews_();
  }

  // Has windows follow the portal where the toolkit's theme does not.
  void color() {
    if (coloring_ || !hasWindows()) {
      return;
    }
    const bool contrast = said_.contrast == 1 || said_.gnomeHighContrast;
    const bool dark = windowsAreDark();
    QPalette wanted = themes_;
    if (contrast) {
      wanted = QPalette(dark ? Qt::black : Qt::white);
    } else if (dark != isDark(themes_)) {
      wanted = QPalette(dark ? QColor(0x2B, 0x2B, 0x2B) : QColor(0xF2, 0xF2, 0xF2));
    }
    if (wanted != QGuiApplication::palette()) {
      coloring_ = true;
      QGuiApplication::setPalette(wanted);
      coloring_ = false;
    }
  }

  // Starts the portal where it is installed but does not run. A failed answer changes nothing.
  void ask() {
    QDBusMessage question =
        QDBusMessage::createMethodCall(service, object, interface, QStringLiteral("ReadAll"));
    question << QStringList{anyDesktop, gnome, gnomeAccess};
    auto* call = new QDBusPendingCallWatcher(bus_.asyncCall(question), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this, call] {
      call->deleteLater();
      answered(call->reply());
    });
  }

  void answered(const QDBusMessage& reply) {
    if (reply.type() != QDBusMessage::ReplyMessage ||
        reply.signature() != QLatin1String("a{sa{sv}}")) {
      return;
    }
    const auto spaces = qdbus_cast<QMap<QString, QVariantMap>>(reply.arguments().constFirst());
    said_ = {};
    for (auto space = spaces.cbegin(); space != spaces.cend(); ++space) {
      for (auto setting = space->cbegin(); setting != space->cend(); ++setting) {
        said_.take(space.key(), setting.key(), setting.value());
      }
    }
    color();
    onNews_();
  }

  QDBusConnection bus_;
  std::function<void()> onNews_;
  HostGround host_;
  QDBusServiceWatcher portalStarts_;
  PortalSettings said_;
  QPalette themes_;  // the toolkit's colours, as its theme has them
  bool coloring_ = false;
};

LinuxAppearance::LinuxAppearance(BusLink& bus)
    : sources_(std::make_unique<Sources>(QDBusConnection(QString()), [this] { update(); })),
      settings_(sources_->settings()),
      bus_(bus.follow([this](const QDBusConnection& connection) {
        sources_ = std::make_unique<Sources>(connection, [this] { update(); }, sources_.get());
        update();
      })) {}

LinuxAppearance::~LinuxAppearance() = default;

void LinuxAppearance::update() {
  const AppearanceSettings settings = sources_->settings();
  if (settings != settings_) {
    settings_ = settings;
    if (onChange) {
      onChange();
    }
  }
}

}  // namespace marigold

#include "LinuxAppearance.moc"
