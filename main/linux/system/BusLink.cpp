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

// The file of the socket at an address that names a single one; empty for any other.
std::string socketFile(const std::string& address) {
  constexpr std::string_view prefix = "unix:path=";
  return address.starts_with(prefix) &&
                 address.find_first_of(",;%", prefix.size()) == std::string::npos
             ? address.substr(prefix.size())
             : std::string();
}

bool exists(const std::string& file) {
  std::error_code ignored;
  return std::filesystem::exists(file, ignored);
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

bool sessionBusAnswers(Trial& trial) {
  const bool answers = trial.answer(answerPatience) == ProbeAnswer::works;
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

BusLink::BusLink(LinuxEventLoop& loop, std::string address, bool answers, std::string program)
    : loop_(loop),
      address_(std::move(address)),
      program_(std::move(program)),
      pause_(firstPause),
      worker_(loop) {
  if (answers) {
    connect();
  } else if (!waitsForSocket()) {
    askAfterPause();  // the start has better things to do
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

void BusLink::askAfterPause() {
  retry_ = loop_.callAfter(pause_, [this] { ask(); });
  pause_ = std::min(pause_ * 2, longestPause);
}

// Whether there is nothing to ask before the socket's file is there; then its coming is watched.
bool BusLink::waitsForSocket() {
  missing_.reset();
  const std::string socket = socketFile(address_);
  if (!socket.empty() && !exists(socket)) {
    missing_.emplace(loop_, socket, [this, socket] {
      if (exists(socket)) {
        pause_ = firstPause;
        askAfterPause();
      }
    });
  }
  return address_.empty() || (missing_ && !exists(socket));  // else it came just now
}

void BusLink::ask() {
  if (waitsForSocket()) {
    return;
  }
  missing_.reset();
  worker_.post([this, &loop = loop_, mark = lifetime_.mark()] {
    // A bus that takes connections and stays silent blocks whoever opens one.
    const bool answers = probeBus(program_, address_, answerPatience, &stop_) == ProbeAnswer::works;
    loop.post([this, mark, answers] {
      if (mark.isOver()) {
        return;
      }
      if (answers) {
        connect();
      } else {
        askAfterPause();
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
  askAfterPause();
}

}  // namespace marigold

#include "BusLink.moc"
