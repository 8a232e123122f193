#pragma once

#include <deque>
#include <functional>
#include <utility>

#include <QtCore/QTimer>

namespace marigold {

/// Work put off to the next turn of the toolkit's event loop, each piece by itself and in order. It
/// may destroy this, which drops what still waits.
class NextTurn final {
 public:
  NextTurn() {
    timer_.setSingleShot(true);
    QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] {
      const auto work = std::move(waiting_.front());
      waiting_.pop_front();
      if (!waiting_.empty()) {
        timer_.start();
      }
      work();
    });
  }

  void run(std::function<void()> work) {
    waiting_.push_back(std::move(work));
    timer_.start();
  }

 private:
  std::deque<std::function<void()>> waiting_;
  QTimer timer_;
};

}  // namespace marigold
