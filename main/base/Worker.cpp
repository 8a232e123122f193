#include "base/Worker.h"

#include <system_error>
#include <utility>

namespace marigold {

namespace {

constexpr Seconds retryAfter{1};

}  // namespace

Worker::~Worker() {
  stop();
}

void Worker::post(Work work) {
  bool isServed = false;
  {
    const std::lock_guard lock(mutex_);
    if (stopped_) {
      return;
    }
    queue_.push_back(std::move(work));
    isServed = hasThread();
  }
  if (isServed) {
    changed_.notify_one();
  } else {
    home_.post(lifetime_.guard([this] { tryAgain(); }));
  }
}

// With the lock held: whether there is a thread, or one is to be had now.
bool Worker::hasThread() {
  try {
    if (!thread_.joinable()) {
      thread_ = std::thread([this] { run(); });
    }
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

void Worker::tryAgain() {
  const std::lock_guard lock(mutex_);
  if (!stopped_ && !hasThread()) {
    retry_ = home_.callAfter(retryAfter, [this] { tryAgain(); });
  }
}

void Worker::stop() {
  {
    std::deque<Work> dropped;  // destroyed outside the lock, and before the thread is waited for
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    dropped.swap(queue_);
  }
  changed_.notify_one();
  if (thread_.joinable()) {
    thread_.join();
  }
}

void Worker::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopped_ || !queue_.empty(); });
    if (stopped_) {
      return;
    }
    {
      const Work work = std::move(queue_.front());
      queue_.pop_front();
      lock.unlock();
      work();
    }  // what the work owned is gone before the lock is taken again
    lock.lock();
  }
}

}  // namespace marigold
