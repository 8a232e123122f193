#include "linux/item/TrayWatcher.h"

#include <fstream>
#include <limits>
#include <utility>

#include <QtDBus/QDBusVariant>

namespace marigold {

namespace {

constexpr QLatin1String watcherInterface("org.kde.StatusNotifierWatcher");
constexpr QLatin1String watcherPath("/StatusNotifierWatcher");

QDBusMessage busCall(const QString& method, const QString& argument) {
  QDBusMessage call = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
      QStringLiteral("org.freedesktop.DBus"), method);
  call << argument;
  return call;
}

std::string programOf(uint processId) {
  std::ifstream file("/proc/" + std::to_string(processId) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

}  // namespace

TrayWatcher::TrayWatcher(QDBusConnection connection, std::function<void()> onChange)
    : connection_(std::move(connection)), onChange_(std::move(onChange)) {
  for (const QLatin1String signal : {QLatin1String("StatusNotifierHostRegistered"),
                                     QLatin1String("StatusNotifierHostUnregistered")}) {
    connection_.connect(QString(), watcherPath, watcherInterface, signal, this,
                        SLOT(hostsChanged()));
  }
  connection_.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                      QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"),
                      this, SLOT(busEnded()));
  owners_.setConnection(connection_);
  owners_.addWatchedService(watcherInterface);  // the service has the same name
  connect(&owners_, &QDBusServiceWatcher::serviceOwnerChanged, this,
          [this](const QString&, const QString&, const QString& owner) { meet(owner); });
  ask(busCall(QStringLiteral("GetNameOwner"), watcherInterface), [this](const auto& reply) {
    if (reply.type() == QDBusMessage::ReplyMessage) {
      meet(reply.arguments().value(0).toString());
    }
  });
}

void TrayWatcher::hostsChanged() {
  if (program_) {  // else the question is still to come
    askForHost();
  }
}

void TrayWatcher::busEnded() {
  meet({});
}

// Getting to know the watcher takes a few questions, one after the other. Nothing here waits for an
// answer, so a slow watcher may take any time, and asking the next question drops an answer that is
// still due. The bus answers for a watcher that goes away.
void TrayWatcher::ask(const QDBusMessage& question,
                      std::function<void(const QDBusMessage&)> answered) {
  answer_ = std::make_unique<QDBusPendingCallWatcher>(
      connection_.asyncCall(question, std::numeric_limits<int>::max()));
  connect(answer_.get(), &QDBusPendingCallWatcher::finished, this,
          [this, answered = std::move(answered)] {
            const auto answer = std::move(answer_);
            answered(answer->reply());
            if (!isAsking() && !available_) {
              onChange_();  // it is known now
            }
          });
}

// The watcher is asked by its owner's name, which starts no service.
QDBusMessage TrayWatcher::watcherCall(QLatin1String interface, const char* method) const {
  return QDBusMessage::createMethodCall(owner_, watcherPath, interface, QLatin1String(method));
}

// `owner` is the watcher now; empty when there is none.
void TrayWatcher::meet(const QString& owner) {
  const bool wasAsking = isAsking();
  answer_.reset();
  owner_ = owner;
  program_.reset();
  setAvailable(false);
  if (owner.isEmpty()) {
    if (wasAsking) {
      onChange_();
    }
    return;
  }
  QDBusMessage registration = watcherCall(watcherInterface, "RegisterStatusNotifierItem");
  registration << connection_.baseService();
  ask(registration, [this](const QDBusMessage& reply) {
    if (reply.type() == QDBusMessage::ReplyMessage) {
      askForProcess();
    }
  });
}

void TrayWatcher::askForProcess() {
  ask(busCall(QStringLiteral("GetConnectionUnixProcessID"), owner_),
      [this](const QDBusMessage& reply) {
        program_ = reply.type() == QDBusMessage::ReplyMessage
                       ? programOf(reply.arguments().value(0).toUInt())
                       : "";
        askForHost();
      });
}

// A watcher may run on with no host, as Plasma's does outside Plasma. One that cannot tell is taken
// at its word that it took the item.
void TrayWatcher::askForHost() {
  QDBusMessage question = watcherCall(QLatin1String("org.freedesktop.DBus.Properties"), "Get");
  question << QString(watcherInterface) << QStringLiteral("IsStatusNotifierHostRegistered");
  ask(question, [this](const QDBusMessage& reply) {
    const bool told = reply.type() == QDBusMessage::ReplyMessage;
    setAvailable(!told || reply.arguments().value(0).value<QDBusVariant>().variant().toBool());
  });
}

void TrayWatcher::setAvailable(bool available) {
  if (std::exchange(available_, available) != available) {
    onChange_();
  }
}

}  // namespace marigold
