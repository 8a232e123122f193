#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "base/Pinned.h"
#include "base/Time.h"

namespace marigold {

using Work = std::function<void()>;

/// Something that runs work one piece after another on one thread: the main loop or a worker.
class Executor : public Pinned {
 public:
  /// Queues `work`. Callable from any thread; never runs it inline. Dropped once closed.
  virtual void post(Work work) = 0;
};

/// A pending call of an event loop. Destroying or cancelling it, on the loop's thread, makes sure
/// that the call does not happen.
class Timer {
 public:
  Timer() = default;
  explicit Timer(std::shared_ptr<Work> pending) : pending_(std::move(pending)) {}

  void cancel() { pending_.reset(); }
  /// True until cancelled; a timer that has fired stays true.
  [[nodiscard]] explicit operator bool() const { return pending_ != nullptr; }

 private:
  std::shared_ptr<Work> pending_;
};

/// The main loop: the one thread that all application state is confined to, and the only reader of
/// clocks.
class EventLoop : public Executor {
 public:
  /// Calls `work` once, at `when` or as soon after it as the loop turns; never inline. Only on the
  /// loop's thread.
  [[nodiscard]] virtual Timer callAt(Instant when, Work work) = 0;
  [[nodiscard]] virtual Instant now() const = 0;
  [[nodiscard]] virtual Date date() const = 0;

  [[nodiscard]] Timer callAfter(Seconds delay, Work work) {
    return callAt(now() + continuousDuration(delay), std::move(work));
  }
};

}  // namespace marigold
