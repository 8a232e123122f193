#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "base/EventLoop.h"
#include "base/Lifetime.h"
#include "base/Pinned.h"
#include "base/Worker.h"
#include "linux/system/FileWatch.h"
#include "linux/system/LinuxSurroundings.h"
#include "linux/system/Probe.h"

class QDBusConnection;

namespace marigold {

/// Where the user's session bus is by `environment`, the whole of this process's; empty for
/// nowhere.
[[nodiscard]] std::string sessionBusAddress(const Environment& environment);
[[nodiscard]] std::string systemBusAddress(const Environment& environment);

/// Whether the session bus answers, by a trial of `opensBus`. One that does not is hidden, in this
/// process's environment, from the toolkit, which opens it for itself and would wait for one that
/// is silent. To be called before any thread starts.
[[nodiscard]] bool sessionBusAnswers(Trial& trial);

/// A lasting connection to a message bus: made as soon as the bus answers, and again after it was
/// lost. Nothing here waits for the bus, and while its socket is missing nothing is done. Needs a
/// running Qt application; lives on the main loop's thread.
class BusLink final : public Pinned {
 public:
  /// Ends what `follow` began.
  using Following = std::shared_ptr<void>;
  using User = std::function<void(const QDBusConnection&)>;

  /// `answers` when that is known already, so that the connection is there from the start.
  /// An empty address is a bus that never comes.
  BusLink(LinuxEventLoop& loop, std::string address, bool answers,
          std::string program = ownProgram);
  BusLink(const BusLink&) = delete;
  BusLink& operator=(const BusLink&) = delete;
  BusLink(BusLink&&) = delete;
  BusLink& operator=(BusLink&&) = delete;
  ~BusLink() override;

  /// Calls `user` with the connection, at once when there is one, and with every later one, while
  /// the result lives, which must end before this.
  [[nodiscard]] Following follow(User user);
  [[nodiscard]] const std::string& address() const { return address_; }

 private:
  class Connection;

  void askAfterPause();
  bool waitsForSocket();
  void ask();
  void connect();
  void lost();

  LinuxEventLoop& loop_;
  std::string address_;
  std::string program_;
  std::unique_ptr<Connection> connection_;  // null while there is none
  std::map<int, User> users_;
  int nextUser_ = 0;
  Seconds pause_;  // before the bus is asked again
  Timer retry_;
  std::optional<FileWatch> missing_;  // on the socket, while there is none
  std::atomic<bool> stop_ = false;
  Worker worker_;
  Lifetime lifetime_;
};

}  // namespace marigold
