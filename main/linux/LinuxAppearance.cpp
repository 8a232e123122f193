#include "LinuxAppearance.h"

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

bool paletteIsDark() {
  if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr) {
    return AppearanceSettings{}.darkMenuBar;
  }
  const QPalette palette = QGuiApplication::palette();
  return qGray(palette.color(QPalette::Window).rgb()) <
         qGray(palette.color(QPalette::WindowText).rgb());
}

}  // namespace

// The portal and the palette: calls `onNews` whenever one of them may say something else.
class LinuxAppearance::Sources final : public QObject {
  Q_OBJECT

 public:
  Sources(QDBusConnection bus, std::function<void()> onNews)
      : bus_(std::move(bus)),
        onNews_(std::move(onNews)),
        portalStarts_(service, bus_, QDBusServiceWatcher::WatchForRegistration) {
    QCoreApplication::instance()->installEventFilter(this);
    // Qt does not know its own type until then, and would refuse the slot.
    qDBusRegisterMetaType<QDBusVariant>();
    bus_.connect(service, object, interface, QStringLiteral("SettingChanged"), this,
                 SLOT(settingChanged(QString, QString, QDBusVariant)));
    connect(&portalStarts_, &QDBusServiceWatcher::serviceRegistered, this, [this] { ask(); });
    ask();
  }

  [[nodiscard]] AppearanceSettings settings() const {
    return {.darkMenuBar = said_.colorScheme == 1 || (said_.colorScheme != 2 && paletteIsDark()),
            .increaseContrast = said_.contrast == 1 || said_.gnomeHighContrast,
            .reduceMotion = said_.motion == 1 || !said_.gnomeAnimates};
  }

  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::ApplicationPaletteChange &&
        watched == QCoreApplication::instance()) {
      onNews_();
    }
    return false;
  }

 private:
  Q_SLOT void settingChanged(const QString& space, const QString& key, const QDBusVariant& value) {
    said_.take(space, key, value.variant());
    onNews_();
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
    onNews_();
  }

  QDBusConnection bus_;
  std::function<void()> onNews_;
  QDBusServiceWatcher portalStarts_;
  PortalSettings said_;
};

LinuxAppearance::LinuxAppearance(const QDBusConnection& bus)
    : sources_(std::make_unique<Sources>(bus, [this] { update(); })),
      settings_(sources_->settings()) {}

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
