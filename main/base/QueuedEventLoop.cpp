#include "base/QueuedEventLoop.h"

#include <algorithm>
#include <utility>

namespace marigold {

namespace {

// So many entries are not worth looking through.
constexpr std::size_t fewTimers = 16;

}  // namespace

void QueuedEventLoop::post(Work work) {
  {
    const std::lock_guard lock(mutex_);
    if (closed_) {
      return;
    }
    queue_.push_back(std::move(work));
  }
  wake();
}

Timer QueuedEventLoop::callAt(Instant when, Work work) {
  {
    const std::lock_guard lock(mutex_);
    if (closed_) {
      return {};
    }
  }
  auto pending = std::make_shared<Work>(std::move(work));
  // A timer that is set anew again and again for a time far ahead would leave an entry each time.
  if (timers_.size() >= tidyAt_) {
    std::erase_if(timers_, [](const auto& entry) { return entry.second.expired(); });
    tidyAt_ = std::max<std::size_t>(2 * timers_.size(), fewTimers);
  }
  timers_.emplace(when, pending);
  wakeAt(nextDeadline());
  return Timer(std::move(pending));
}

void QueuedEventLoop::close() {
  std::deque<Work> dropped;  // destroyed outside the lock: what it owns may post
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    dropped.swap(queue_);
  }
  timers_.clear();
}

void QueuedEventLoop::runReady() {
  promoteDueTimers();
  std::size_t left = 0;
  {
    const std::lock_guard lock(mutex_);
    left = queue_.size();
  }
  while (left-- > 0 && runOne()) {
  }
  wakeAt(nextDeadline());
}

void QueuedEventLoop::promoteDueTimers() {
  const Instant at = now();
  while (!timers_.empty() && timers_.begin()->first <= at) {
    std::weak_ptr<Work> pending = std::move(timers_.begin()->second);
    timers_.erase(timers_.begin());
    const std::lock_guard lock(mutex_);
    // Still weak: the timer may be cancelled by work that runs before it in this turn.
    queue_.emplace_back([pending = std::move(pending)] {
      if (const auto work = pending.lock()) {
        (*work)();
      }
    });
  }
}

bool QueuedEventLoop::runOne() {
  Work work;
  {
    const std::lock_guard lock(mutex_);
    if (queue_.empty()) {
      return false;
    }
    work = std::move(queue_.front());
    queue_.pop_front();
  }
  work();
  return true;
}

std::optional<Instant> QueuedEventLoop::nextDeadline() {
  while (!timers_.empty() && timers_.begin()->second.expired()) {
    timers_.erase(timers_.begin());
  }
  if (timers_.empty()) {
    return std::nullopt;
  }
  return timers_.begin()->first;
}

}  // namespace marigold
