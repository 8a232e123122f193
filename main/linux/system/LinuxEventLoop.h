#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <thread>

#include "base/OwnedDescriptor.h"
#include "base/QueuedEventLoop.h"

namespace marigold {

/// The main loop on Linux: everything it waits for is behind one epoll descriptor, so that it runs
/// by itself or inside another toolkit's loop. Timers count through sleep (CLOCK_BOOTTIME). Made on
/// the thread that turns it.
class LinuxEventLoop final : public QueuedEventLoop {
 public:
  LinuxEventLoop();
  LinuxEventLoop(const LinuxEventLoop&) = delete;
  LinuxEventLoop& operator=(const LinuxEventLoop&) = delete;
  ~LinuxEventLoop() override;

  [[nodiscard]] Instant now() const override;
  [[nodiscard]] Date date() const override;

  /// Readable whenever `dispatch` has something to do.
  [[nodiscard]] int descriptor() const noexcept { return epoll_.get(); }
  /// Handles everything that is ready; never blocks.
  void dispatch() { turn(0); }

  /// Turns until `quit`.
  void run();
  void quit();

  /// Calls `onReadable`, on the loop's thread, whenever `descriptor` is readable, until `unwatch`.
  void watch(int descriptor, Work onReadable);
  void unwatch(int descriptor);

 protected:
  void wake() override;
  void wakeAt(std::optional<Instant> when) override;

 private:
  void turn(int timeoutMilliseconds);

  OwnedDescriptor epoll_;
  OwnedDescriptor wakeups_;
  OwnedDescriptor soon_;
  OwnedDescriptor timer_;
  // A wake-up is on its way; no second one is needed.
  std::atomic<bool> awake_ = false;
  std::atomic<bool> awakeSoon_ = false;
  std::optional<Instant> armed_;  // what the timer descriptor is set to
  std::map<int, std::shared_ptr<Work>> watched_;
  bool running_ = false;
  const std::thread::id thread_ = std::this_thread::get_id();
};

}  // namespace marigold
