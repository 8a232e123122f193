#include "StatusNotifierItem.h"

#include <fstream>
#include <limits>
#include <optional>
#include <tuple>
#include <utility>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QUuid>
#include <QtCore/QtEndian>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusObjectPath>
#include <QtDBus/QDBusPendingCall>
#include <QtDBus/QDBusPendingCallWatcher>
#include <QtDBus/QDBusServiceWatcher>
#include <QtDBus/QDBusVariant>
#include <QtGui/QImage>

#include "DBusMenu.h"
#include "DBusStructure.h"
#include "NextTurn.h"

namespace marigold {

// The structures of org.kde.StatusNotifierItem, with their signatures.

// (iiay): width, height and ARGB pixels, not premultiplied, each in network byte order.
struct DBusPixmap {
  int width = 0;
  int height = 0;
  QByteArray pixels;

  bool operator==(const DBusPixmap&) const = default;

  static constexpr std::tuple fields{&DBusPixmap::width, &DBusPixmap::height, &DBusPixmap::pixels};
};

// (sa(iiay)ss): an icon by name or as pixmaps, a title and a text.
struct DBusToolTip {
  QString iconName;
  QList<DBusPixmap> pixmaps;
  QString title;
  QString text;

  bool operator==(const DBusToolTip&) const = default;

  static constexpr std::tuple fields{&DBusToolTip::iconName, &DBusToolTip::pixmaps,
                                     &DBusToolTip::title, &DBusToolTip::text};
};

namespace {

constexpr QLatin1String watcherInterface("org.kde.StatusNotifierWatcher");
constexpr QLatin1String watcherPath("/StatusNotifierWatcher");
constexpr QLatin1String itemPath("/StatusNotifierItem");

DBusPixmap pixmapOf(const QImage& image) {
  const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
  DBusPixmap result{.width = argb.width(), .height = argb.height()};
  QByteArray row(4 * qsizetype{argb.width()}, '\0');
  for (int y = 0; y < argb.height(); ++y) {
    qToBigEndian<quint32>(argb.constScanLine(y), argb.width(), row.data());
    result.pixels += row;
  }
  return result;
}

// Hosts read a tooltip as markup, each escapes it differently, and a single "&" or "<" blanks the
// whole of it in some: what would be markup is replaced by what reads alike.
QString withoutMarkup(QString text) {
  return text.replace(u'&', u'+').replace(u'<', u'\u2039').replace(u'>', u'\u203A');
}

QDBusMessage busCall(const QString& method, const QString& argument) {
  QDBusMessage call = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
      QStringLiteral("org.freedesktop.DBus"), method);
  call << argument;
  return call;
}

bool isWaybar(uint processId) {
  std::ifstream file("/proc/" + std::to_string(processId) + "/comm");
  std::string name;
  return std::getline(file, name) && name == "waybar";
}

}  // namespace

// The object on the bus, whose public slots, signals and properties are the interface under the
// protocol's names, and the acquaintance with watchers.
class StatusNotifierItem::Exported final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
  Q_PROPERTY(QString Category MEMBER category_ CONSTANT)
  Q_PROPERTY(QString Id MEMBER id_ CONSTANT)
  Q_PROPERTY(QString Title MEMBER title_ CONSTANT)
  Q_PROPERTY(QString Status MEMBER status_ CONSTANT)
  Q_PROPERTY(int WindowId MEMBER windowId_ CONSTANT)
  Q_PROPERTY(QString IconName MEMBER none_ CONSTANT)
  Q_PROPERTY(QList<marigold::DBusPixmap> IconPixmap READ iconPixmap)
  Q_PROPERTY(QString OverlayIconName MEMBER none_ CONSTANT)
  Q_PROPERTY(QList<marigold::DBusPixmap> OverlayIconPixmap MEMBER noPixmaps_ CONSTANT)
  Q_PROPERTY(QString AttentionIconName MEMBER none_ CONSTANT)
  Q_PROPERTY(QList<marigold::DBusPixmap> AttentionIconPixmap MEMBER noPixmaps_ CONSTANT)
  Q_PROPERTY(QString AttentionMovieName MEMBER none_ CONSTANT)
  Q_PROPERTY(QString IconThemePath MEMBER none_ CONSTANT)
  Q_PROPERTY(marigold::DBusToolTip ToolTip READ toolTip)
  Q_PROPERTY(bool ItemIsMenu MEMBER itemIsMenu_ CONSTANT)
  Q_PROPERTY(QDBusObjectPath Menu MEMBER menuPath_ CONSTANT)
  Q_PROPERTY(QString XAyatanaLabel READ label)
  Q_PROPERTY(QString XAyatanaLabelGuide MEMBER none_ CONSTANT)
  Q_PROPERTY(QString IconAccessibleDesc READ description)

 public:
  Exported(StatusNotifierItem& item, bool developmentBuild)
      : item_(item),
        id_(developmentBuild ? QStringLiteral("marigold-dev") : QStringLiteral("marigold")),
        // A connection is private by a name of its own.
        connection_(QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                  QUuid::createUuid().toString())) {
    if (!connection_.isConnected()) {
      return;
    }
    qDBusRegisterMetaType<DBusPixmap>();
    qDBusRegisterMetaType<QList<DBusPixmap>>();
    qDBusRegisterMetaType<DBusToolTip>();
    menu_.emplace(connection_, [this](bool opening) { return menuItems(opening); });
    connection_.registerObject(itemPath, this, QDBusConnection::ExportAllContents);

    for (const QLatin1String signal : {QLatin1String("StatusNotifierHostRegistered"),
                                       QLatin1String("StatusNotifierHostUnregistered")}) {
      connection_.connect(QString(), watcherPath, watcherInterface, signal, this,
                          SLOT(hostsChanged()));
    }
    connection_.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                        QStringLiteral("org.freedesktop.DBus.Local"),
                        QStringLiteral("Disconnected"), this, SLOT(busEnded()));
    owners_.setConnection(connection_);
    owners_.addWatchedService(watcherInterface);  // the service has the same name
    connect(&owners_, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& owner) { meet(owner); });
    ask(busCall(QStringLiteral("GetNameOwner"), watcherInterface),
        [this](const QDBusMessage& reply) {
          if (reply.type() == QDBusMessage::ReplyMessage) {
            meet(reply.arguments().value(0).toString());
          }
        });
  }
  Exported(const Exported&) = delete;
  Exported& operator=(const Exported&) = delete;
  Exported(Exported&&) = delete;
  Exported& operator=(Exported&&) = delete;
  ~Exported() override {
    connection_.unregisterObject(itemPath);
    QDBusConnection::disconnectFromBus(connection_.name());
  }

  // What hosts are shown besides what never changes.
  struct Content {
    QList<DBusPixmap> pixmaps;
    DBusToolTip toolTip;
    QString label;
    QString description;
  };

  [[nodiscard]] QList<DBusPixmap> iconPixmap() const { return content_.pixmaps; }
  [[nodiscard]] DBusToolTip toolTip() const { return content_.toolTip; }
  [[nodiscard]] QString label() const { return content_.label; }
  [[nodiscard]] QString description() const { return content_.description; }

  [[nodiscard]] bool available() const { return available_; }
  [[nodiscard]] bool isAsking() const { return answer_ != nullptr; }
  [[nodiscard]] bool hostIsWaybar() const { return waybar_.value_or(false); }
  [[nodiscard]] std::string takeToken() { return std::exchange(token_, {}); }

  // Sets one of the contents. Hosts are told later, of whatever then differs from what they know.
  template <class Value>
  void set(Value Content::* member, Value value) {
    content_.*member = std::move(value);
    next_.run([this] { tellChanges(); });
  }

  Q_SLOT void Activate(int x, int y) { callLater(item_.onActivate, x, y); }
  Q_SLOT void SecondaryActivate(int /*x*/, int /*y*/) {}
  Q_SLOT void ContextMenu(int x, int y) { callLater(item_.onContextMenu, x, y); }
  Q_SLOT void Scroll(int /*delta*/, const QString& /*orientation*/) {}
  // Plasma sends an empty one on X11.
  Q_SLOT void ProvideXdgActivationToken(const QString& token) {
    if (!token.isEmpty()) {
      token_ = token.toStdString();
    }
  }

 Q_SIGNALS:
  void NewIcon();
  void NewTitle();
  void NewToolTip();
  void NewMenu();
  void NewAttentionIcon();
  void NewOverlayIcon();
  void NewStatus(const QString& /*status*/);
  void XAyatanaNewLabel(const QString& /*label*/, const QString& /*guide*/);

 private:
  Q_SLOT void hostsChanged() {
    if (waybar_) {  // else the question is still to come
      askForHost();
    }
  }
  Q_SLOT void busEnded() { meet({}); }

  // Callbacks may destroy the item, which must not happen while a call is being answered.
  template <class... Arguments>
  void callLater(const std::function<void(Arguments...)>& callback, Arguments... arguments) {
    if (callback) {
      next_.run([callback, arguments...] { callback(arguments...); });
    }
  }

  [[nodiscard]] std::vector<MenuItem> menuItems(bool opening) const {
    const auto& items = opening || !item_.onMenuReading ? item_.onMenuOpening : item_.onMenuReading;
    return items ? items() : std::vector<MenuItem>{};
  }

  // The accessible description has no signal of its own and is read again with the icon, or with
  // the tooltip: while only ages move on, the icon is not sent again.
  void tellChanges() {
    const Content told = std::exchange(told_, content_);
    if (told.pixmaps != content_.pixmaps ||
        (told.description != content_.description && told.toolTip == content_.toolTip)) {
      Q_EMIT NewIcon();
    }
    if (told.toolTip != content_.toolTip) {
      Q_EMIT NewToolTip();
    }
    if (told.label != content_.label) {
      Q_EMIT XAyatanaNewLabel(content_.label, none_);
    }
  }

  // Getting to know the watcher takes a few questions, one after the other. Nothing here waits for
  // an answer, so a slow watcher may take any time, and asking the next question drops an answer
  // that is still due. The bus answers for a watcher that goes away.
  void ask(const QDBusMessage& question, std::function<void(const QDBusMessage&)> answered) {
    answer_ = std::make_unique<QDBusPendingCallWatcher>(
        connection_.asyncCall(question, std::numeric_limits<int>::max()));
    connect(answer_.get(), &QDBusPendingCallWatcher::finished, this,
            [this, answered = std::move(answered)] {
              const auto answer = std::move(answer_);
              answered(answer->reply());
              if (!isAsking() && !available_) {
                callLater(item_.onAvailabilityChange);  // it is known now
              }
            });
  }

  // The watcher is asked by its owner's name, which starts no service.
  [[nodiscard]] QDBusMessage watcherCall(const QString& interface, const QString& method) const {
    return QDBusMessage::createMethodCall(owner_, watcherPath, interface, method);
  }

  // `owner` is the watcher now; empty when there is none.
  void meet(const QString& owner) {
    const bool wasAsking = isAsking();
    answer_.reset();
    owner_ = owner;
    waybar_.reset();
    setAvailable(false);
    if (owner.isEmpty()) {
      if (wasAsking) {
        callLater(item_.onAvailabilityChange);
      }
      return;
    }
    QDBusMessage registration =
        watcherCall(watcherInterface, QStringLiteral("RegisterStatusNotifierItem"));
    registration << connection_.baseService();
    ask(registration, [this](const QDBusMessage& reply) {
      if (reply.type() == QDBusMessage::ReplyMessage) {
        askForProcess();
      }
    });
  }

  void askForProcess() {
    ask(busCall(QStringLiteral("GetConnectionUnixProcessID"), owner_),
        [this](const QDBusMessage& reply) {
          waybar_ = reply.type() == QDBusMessage::ReplyMessage &&
                    isWaybar(reply.arguments().value(0).toUInt());
          askForHost();
        });
  }

  // A watcher may run on with no host, as Plasma's does outside Plasma. One that cannot tell is
  // taken at its word that it took the item.
  void askForHost() {
    QDBusMessage question =
        watcherCall(QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    question << QString(watcherInterface) << QStringLiteral("IsStatusNotifierHostRegistered");
    ask(question, [this](const QDBusMessage& reply) {
      const bool told = reply.type() == QDBusMessage::ReplyMessage;
      setAvailable(!told || reply.arguments().value(0).value<QDBusVariant>().variant().toBool());
    });
  }

  void setAvailable(bool available) {
    if (std::exchange(available_, available) != available) {
      callLater(item_.onAvailabilityChange);
    }
  }

  StatusNotifierItem& item_;

  const QString category_ = QStringLiteral("ApplicationStatus");
  const QString id_;
  const QString title_ = QStringLiteral("Marigold");
  const QString status_ = QStringLiteral("Active");
  const int windowId_ = 0;
  const bool itemIsMenu_ = false;  // XFCE takes a missing one for true
  const QDBusObjectPath menuPath_{QLatin1String(DBusMenu::path)};
  const QString none_ = QStringLiteral("");
  const QList<DBusPixmap> noPixmaps_;

  QDBusConnection connection_;
  std::optional<DBusMenu> menu_;
  Content content_;
  Content told_;
  NextTurn next_;
  std::string token_;

  QDBusServiceWatcher owners_;
  std::unique_ptr<QDBusPendingCallWatcher> answer_;
  QString owner_;
  std::optional<bool> waybar_;  // absent until the owner is known
  bool available_ = false;
};

StatusNotifierItem::StatusNotifierItem(bool developmentBuild)
    : exported_(std::make_unique<Exported>(*this, developmentBuild)) {}

StatusNotifierItem::~StatusNotifierItem() = default;

bool StatusNotifierItem::available() const {
  return exported_->available();
}

bool StatusNotifierItem::isAsking() const {
  return exported_->isAsking();
}

bool StatusNotifierItem::hostIsWaybar() const {
  return exported_->hostIsWaybar();
}

void StatusNotifierItem::setPixmaps(const std::vector<QImage>& images) {
  QList<DBusPixmap> pixmaps;
  for (const QImage& image : images) {
    pixmaps.append(pixmapOf(image));
  }
  exported_->set(&Exported::Content::pixmaps, std::move(pixmaps));
}

void StatusNotifierItem::setToolTip(const std::string& lines) {
  const QString text = withoutMarkup(QString::fromStdString(lines));
  exported_->set(&Exported::Content::toolTip,
                 DBusToolTip{.title = text.section(u'\n', 0, 0), .text = text.section(u'\n', 1)});
}

void StatusNotifierItem::setLabel(const std::string& label) {
  exported_->set(&Exported::Content::label, QString::fromStdString(label));
}

void StatusNotifierItem::setAccessibleDescription(const std::string& description) {
  exported_->set(&Exported::Content::description, QString::fromStdString(description));
}

std::string StatusNotifierItem::takeActivationToken() {
  return exported_->takeToken();
}

}  // namespace marigold

#include "StatusNotifierItem.moc"
