#include "linux/system/HostGround.h"

#include <fstream>
#include <string>
#include <utility>

#include <QtCore/QFileSystemWatcher>
#include <QtCore/QObject>
#include <QtCore/QSettings>
#include <QtCore/QStandardPaths>
#include <QtCore/QStringList>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusPendingCallWatcher>
#include <QtDBus/QDBusServiceWatcher>
#include <QtDBus/QDBusVariant>
#include <QtGui/QColor>

namespace marigold {

namespace {

constexpr QLatin1String watcher("org.kde.StatusNotifierWatcher");
constexpr QLatin1String xfconf("org.xfce.Xfconf");
constexpr QLatin1String xfconfPath("/org/xfce/Xfconf");
constexpr QLatin1String panelChannel("xfce4-panel");
constexpr QLatin1String panelIsDark("/panels/dark-mode");

DarkMenuBar known(bool dark) {
  return dark ? DarkMenuBar::yes : DarkMenuBar::no;
}

std::string programOf(uint processId) {
  std::ifstream file("/proc/" + std::to_string(processId) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

// Where Plasma keeps the name of its style.
QString plasmaSettings() {
  return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
         QStringLiteral("/plasmarc");
}

// A style without colours of its own takes those of applications.
DarkMenuBar plasmaGround() {
  const QString style = QSettings(plasmaSettings(), QSettings::IniFormat)
                            .value(QStringLiteral("Theme/name"), QStringLiteral("default"))
                            .toString();
  const QString colors =
      QStandardPaths::locate(QStandardPaths::GenericDataLocation,
                             QStringLiteral("plasma/desktoptheme/%1/colors").arg(style));
  const QStringList parts = QSettings(colors, QSettings::IniFormat)
                                .value(QStringLiteral("Colors:Window/BackgroundNormal"))
                                .toStringList();
  if (colors.isEmpty() || parts.size() < 3) {
    return DarkMenuBar::unknown;
  }
  return known(qGray(parts[0].toInt(), parts[1].toInt(), parts[2].toInt()) < 128);
}

}  // namespace

class HostGround::Watch final : public QObject {
  Q_OBJECT

 public:
  Watch(QDBusConnection bus, std::function<void()> onChange)
      : bus_(std::move(bus)),
        onChange_(std::move(onChange)),
        owners_(watcher, bus_, QDBusServiceWatcher::WatchForOwnerChange) {
    qDBusRegisterMetaType<QDBusVariant>();
    connect(&owners_, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& owner) { meet(owner); });
    connect(&files_, &QFileSystemWatcher::fileChanged, this, [this] { readPlasma(); });
    bus_.connect(QString(), xfconfPath, xfconf, QStringLiteral("PropertyChanged"), this,
                 SLOT(propertyChanged(QString, QString, QDBusVariant)));
    ask(busCall("GetNameOwner", watcher),
        [this](const QVariant& owner) { meet(owner.toString()); });
  }

  [[nodiscard]] DarkMenuBar ground() const { return ground_; }

 private:
  Q_SLOT void propertyChanged(const QString& channel, const QString& property,
                              const QDBusVariant& value) {
    if (isXfce_ && channel == panelChannel && property == panelIsDark) {
      tell(known(value.variant().toBool()));
    }
  }

  static QDBusMessage busCall(const char* method, const QString& argument) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QLatin1String(method));
    return call << argument;
  }

  // The answer is the first value of the reply, an invalid one for a refusal. Asking anew drops the
  // answer that is still due.
  void ask(const QDBusMessage& question, std::function<void(const QVariant&)> answered) {
    answer_ = std::make_unique<QDBusPendingCallWatcher>(bus_.asyncCall(question));
    connect(answer_.get(), &QDBusPendingCallWatcher::finished, this,
            [this, answered = std::move(answered)] {
              const auto answer = std::move(answer_);
              const QDBusMessage reply = answer->reply();
              const bool told = reply.type() == QDBusMessage::ReplyMessage;
              answered(told ? reply.arguments().value(0) : QVariant());
            });
  }

  // `owner` is the watcher now; empty when there is none.
  void meet(const QString& owner) {
    answer_.reset();
    isXfce_ = false;
    if (!files_.files().isEmpty()) {
      files_.removePaths(files_.files());
    }
    if (owner.isEmpty()) {
      tell(DarkMenuBar::unknown);
    } else {
      ask(busCall("GetConnectionUnixProcessID", owner),
          [this](const QVariant& processId) { look(programOf(processId.toUInt())); });
    }
  }

  void look(const std::string& program) {
    // The panel's own process, or the one it runs a plugin in.
    isXfce_ = program == "xfce4-panel" || program.starts_with("wrapper-");
    if (program == "gnome-shell" || program == "waybar" || program == "swaybar") {
      tell(DarkMenuBar::yes);
    } else if (isXfce_) {
      QDBusMessage question =
          QDBusMessage::createMethodCall(xfconf, xfconfPath, xfconf, QStringLiteral("GetProperty"));
      question << QString(panelChannel) << QString(panelIsDark);
      ask(question, [this](const QVariant& value) {
        tell(value.isValid() ? known(qvariant_cast<QDBusVariant>(value).variant().toBool())
                             : DarkMenuBar::unknown);
      });
    } else if (program == "plasmashell" || program.starts_with("kded")) {
      readPlasma();
    } else {
      tell(DarkMenuBar::unknown);
    }
  }

  void readPlasma() {
    files_.addPath(plasmaSettings());  // again: saving replaces the file
    tell(plasmaGround());
  }

  void tell(DarkMenuBar ground) {
    if (std::exchange(ground_, ground) != ground) {
      onChange_();
    }
  }

  QDBusConnection bus_;
  std::function<void()> onChange_;
  QDBusServiceWatcher owners_;
  QFileSystemWatcher files_;
  std::unique_ptr<QDBusPendingCallWatcher> answer_;
  bool isXfce_ = false;
  DarkMenuBar ground_ = DarkMenuBar::unknown;
};

HostGround::HostGround(const QDBusConnection& bus, std::function<void()> onChange)
    : watch_(std::make_unique<Watch>(bus, std::move(onChange))) {}

HostGround::~HostGround() = default;

DarkMenuBar HostGround::ground() const {
  return watch_->ground();
}

}  // namespace marigold

#include "HostGround.moc"
