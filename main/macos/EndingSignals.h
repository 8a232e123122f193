#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace marigold {

/// The signals that ask a process to end (SIGINT, SIGTERM, SIGHUP), told on a thread of its own.
class EndingSignals final {
 public:
  /// Keeps them waiting until they are watched. To be called before any thread starts, so that
  /// every thread inherits it.
  static void block();

  explicit EndingSignals(std::function<void()> onSignal);
  EndingSignals(const EndingSignals&) = delete;
  EndingSignals& operator=(const EndingSignals&) = delete;
  ~EndingSignals();

 private:
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

}  // namespace marigold
