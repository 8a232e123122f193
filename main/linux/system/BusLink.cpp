#include "linux/system/BusLink.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QUuid>
#include <QtDBus/QDBusConnection>

namespace marigold {

namespace {

// A bus that is started again is back soon; one that is not there may never come.
constexpr Seconds firstPause{0.5};
constexpr Seconds longestPause{60};

// Found out by a process of its own: a bus that takes connections and stays silent blocks whoever
// opens one.
bool busAnswers(const std::string& address, const std::string& program,
                const std::atomic<bool>* stop = nullptr) {
  return !address.empty() &&
         probe(program, Probe::bus, address, {}, answerPatience, stop) == ProbeAnswer::works;
}

}  // namespace

std::string sessionBusAddress(const Environment& environment) {
  if (const auto named = environment.find("DBUS_SESSION_BUS_ADDRESS");
      named != environment.end() && !named->second.empty()) {
    return named->second;
  }
  const auto runtime = environment.find("XDG_RUNTIME_DIR");
  const std::string socket = (runtime == environment.end() ? "" : runtime->second) + "/bus";
  std::error_code ignored;
  return std::filesystem::is_socket(socket, ignored) ? "unix:path=" + socket : std::string();
}

std::string systemBusAddress(const Environment& environment) {
  const auto named = environment.find("DBUS_SYSTEM_BUS_ADDRESS");
  return named != environment.end() && !named->second.empty()
             ? named->second
             : "unix:path=/run/dbus/system_bus_socket";
}

bool sessionBusAnswers(const Environment& environment) {
  const bool answers = busAnswers(sessionBusAddress(environment), ownProgram);
  if (!answers) {
    qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
  }
  return answers;
}

// A connection with a name of its own, so that it is this one's alone.
class BusLink::Connection final : public QObject {
  Q_OBJECT

 public:
  Connection(const std::string& address, Work onLost)
      : bus(QDBusConnection::connectToBus(QString::fromStdString(address),
                                          QUuid::createUuid().toString())),
        onLost_(std::move(onLost)) {
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                SLOT(ended()));
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  Connection(Connection&&) = delete;
  Connection& operator=(Connection&&) = delete;
  ~Connection() override { QDBusConnection::disconnectFromBus(bus.name()); }

  QDBusConnection bus;

 private:
  Q_SLOT void ended() { onLost_(); }

  Work onLost_;
};

BusLink::BusLink(EventLoop& loop, std::string address, bool answers, std::string program)
    : loop_(loop),
      address_(std::move(address)),
      program_(std::move(program)),
      pause_(firstPause),
      worker_(loop) {
  if (answers) {
    connect();
  } else {
    ask();
  }
}

BusLink::~BusLink() {
  stop_ = true;
  worker_.stop();
}

BusLink::Following BusLink::follow(User user) {
  const int key = nextUser_++;
  const User& kept = users_.emplace(key, std::move(user)).first->second;
  if (connection_) {
    kept(connection_->bus);
  }
  return {nullptr, [this, key](void*) { users_.erase(key); }};
}

void BusLink::ask() {
  if (address_.empty()) {
    return;
  }
  worker_.post([this, &loop = loop_, mark = lifetime_.mark()] {
    const bool answers = busAnswers(address_, program_, &stop_);
    loop.post([this, mark, answers] {
      if (mark.isOver()) {
        return;
      }
      if (answers) {
        connect();
      } else {
        retry_ = loop_.callAfter(pause_, [this] { ask(); });
        pause_ = std::min(pause_ * 2, longestPause);
      }
    });
  });
}

void BusLink::connect() {
  connection_ = std::make_unique<Connection>(address_, [this] {
    // Not within the signal of the connection that is to go.
    loop_.post(lifetime_.guard([this] { lost(); }));
  });
  if (!connection_->bus.isConnected()) {
    lost();
    return;
  }
  pause_ = firstPause;
  for (const auto& [key, user] : std::map(users_)) {
    user(connection_->bus);
  }
}

void BusLink::lost() {
  connection_.reset();
  retry_ = loop_.callAfter(pause_, [this] { ask(); });
  pause_ = std::min(pause_ * 2, longestPause);
}

}  // namespace marigold

#include "BusLink.moc"
