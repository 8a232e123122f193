#include "Worker.h"

#include <utility>

namespace marigold {

Worker::~Worker() {
  stop();
}

void Worker::post(Work work) {
  {
    const std::lock_guard lock(mutex_);
    if (stopped_) {
      return;
    }
    queue_.push_back(std::move(work));
    if (!thread_.joinable()) {
      thread_ = std::thread([this] { run(); });
    }
  }
  changed_.notify_one();
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
