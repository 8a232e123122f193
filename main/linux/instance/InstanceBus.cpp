#include "linux/instance/InstanceBus.h"

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCallWatcher>

#include "app/InstanceAnswers.h"
#include "model/DiskCache.h"

namespace marigold {

namespace {

QString busName() {
  return QString::fromUtf8(builtInBundleIdentifier().data(),
                           qsizetype(builtInBundleIdentifier().size()));
}

QString objectPath() {
  return QLatin1Char('/') + busName().replace(QLatin1Char('.'), QLatin1Char('/'));
}

QDBusMessage busMethod(const char* name) {
  return QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
      QStringLiteral("org.freedesktop.DBus"), QLatin1String(name));
}

constexpr const char* interfaceName = "app.marigold.Marigold";
constexpr uint waitsInQueue = 2;  // the bus's answer to who asks for a name that is taken

}  // namespace

class InstanceBus::Exported final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "app.marigold.Marigold")

 public:
  Exported(InstanceDoor& door, Work onElsewhere)
      : door_(door), onElsewhere_(std::move(onElsewhere)) {}

  void come(const QDBusConnection& connection) {
    QDBusConnection bus = connection;
    bus.registerObject(objectPath(), this, QDBusConnection::ExportAllSlots);
    call(bus, busMethod("RequestName") << busName() << 0U, [this, bus](const QDBusMessage& reply) {
      // Later it is this one that has been here for long.
      const Work then = std::exchange(onElsewhere_, nullptr);
      if (then && reply.arguments().value(0).toUInt() == waitsInQueue) {
        sendElsewhere(bus, then);
      }
    });
  }

  Q_SLOT void Open() { (void)ask(instanceRequest::open); }
  Q_SLOT void Quit() { (void)ask(instanceRequest::quit); }
  Q_SLOT QString Status() {
    return QString::fromStdString(
               ask(std::string(instanceRequest::status).append(rawValue(StatusForm::json))))
        .trimmed();
  }

 private:
  // By the name of its connection, which is never given to another one. One that has just crashed
  // may still have it, but does not answer.
  void sendElsewhere(const QDBusConnection& bus, const Work& then) {
    call(bus, busMethod("GetNameOwner") << busName(), [this, bus, then](const QDBusMessage& reply) {
      const QString owner = reply.arguments().value(0).toString();
      if (reply.type() != QDBusMessage::ReplyMessage || owner == bus.baseService()) {
        return;
      }
      call(bus,
           QDBusMessage::createMethodCall(owner, objectPath(), QLatin1String(interfaceName),
                                          QStringLiteral("Open")),
           [then](const QDBusMessage& opened) {
             if (opened.type() == QDBusMessage::ReplyMessage) {
               then();
             }
           });
    });
  }

  void call(const QDBusConnection& bus, const QDBusMessage& message,
            std::function<void(const QDBusMessage&)> then) {
    auto* const asked = new QDBusPendingCallWatcher(bus.asyncCall(message), this);
    connect(asked, &QDBusPendingCallWatcher::finished, this, [asked, then = std::move(then)] {
      asked->deleteLater();
      then(asked->reply());
    });
  }

  [[nodiscard]] std::string ask(std::string_view request) const {
    return door_.onRequest ? door_.onRequest(request) : std::string();
  }

  InstanceDoor& door_;
  Work onElsewhere_;
};

InstanceBus::InstanceBus(BusLink& bus, InstanceDoor& door, Work onElsewhere)
    : exported_(std::make_unique<Exported>(door, std::move(onElsewhere))),
      following_(
          bus.follow([this](const QDBusConnection& connection) { exported_->come(connection); })) {}

InstanceBus::~InstanceBus() {
  following_.reset();
}

}  // namespace marigold

#include "InstanceBus.moc"
