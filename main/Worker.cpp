#include "Worker.h"

#include <system_error>
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
      try {
        thread_ = std::thread([this] { run(); });
      } catch (const std::system_error&) {
        return;  // no thread to be had now; the work waits for the next post
      }
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
