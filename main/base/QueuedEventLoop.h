#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "base/EventLoop.h"

namespace marigold {

/// The queue, the timers and the closing of an event loop, written once. A desktop adds the clocks,
/// a way to be woken and a thread that calls `runReady`.
class QueuedEventLoop : public EventLoop {
 public:
  void post(Work work) final;
  [[nodiscard]] Timer callAt(Instant when, Work work) final;

  /// Drops all waiting work and timers; everything posted later is dropped too.
  void close();

 protected:
  /// Called after work was queued, from any thread: the loop must turn soon.
  virtual void wake() = 0;
  /// Called on the loop's thread when the time of the next timer may have changed: the loop must
  /// turn at `when`, or need not for any timer.
  virtual void wakeAt(std::optional<Instant> when) = 0;

  /// Runs what is ready now: due timers and the work queued before this turn. Work queued meanwhile
  /// waits for the next turn.
  void runReady();

  /// Moves due timers to the queue, in the order of their times.
  void promoteDueTimers();
  /// Runs the first queued piece of work; false when there is none.
  bool runOne();

  /// When the next timer is due; forgets cancelled ones.
  [[nodiscard]] std::optional<Instant> nextDeadline();

  /// The entries that timers take, of cancelled ones too as far as they are not forgotten yet.
  [[nodiscard]] std::size_t timerEntries() const noexcept { return timers_.size(); }

 private:
  std::mutex mutex_;  // guards queue_ and closed_
  std::deque<Work> queue_;
  bool closed_ = false;
  // The loop's thread only.
  std::multimap<Instant, std::weak_ptr<Work>> timers_;
  std::size_t tidyAt_ = 0;  // how many entries there may be before cancelled ones are sought
};

}  // namespace marigold
