#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "base/EventLoop.h"
#include "base/Lifetime.h"

namespace marigold {

/// An executor on a thread of its own, for work that may block. The thread starts with the first
/// piece of work; one that the system refuses is asked for again by a timer of `home`'s loop, which
/// must outlive the worker and is where it is stopped.
class Worker final : public Executor {
 public:
  explicit Worker(EventLoop& home) : home_(home) {}
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker() override;

  void post(Work work) override;

  /// Drops what waits, lets the running piece finish and ends the thread.
  void stop();

 private:
  [[nodiscard]] bool hasThread();
  void tryAgain();
  void run();

  EventLoop& home_;
  std::mutex mutex_;  // guards queue_, stopped_ and thread_
  std::condition_variable changed_;
  std::deque<Work> queue_;
  bool stopped_ = false;
  std::thread thread_;
  Timer retry_;
  Lifetime lifetime_;
};

/// Confines one object to an executor: it is used there and nowhere else, and answers on another.
template <class T>
class Isolated {
 public:
  /// `worker` runs the questions, `home` receives the answers; both must outlive this.
  Isolated(Executor& worker, Executor& home, std::unique_ptr<T> value)
      : worker_(worker), home_(home), value_(std::move(value)) {}

  /// Runs `question(T&)` on the worker and then `answer(result)` at home.
  template <class Question, class Answer>
  void ask(Question question, Answer answer) {
    worker_.post([value = value_, &home = home_, question = std::move(question),
                  answer = std::move(answer)]() mutable {
      home.post([result = question(*value), answer = std::move(answer)]() mutable {
        answer(std::move(result));
      });
    });
  }

  /// Runs `order(T&)` on the worker; nobody is told.
  template <class Order>
  void tell(Order order) {
    worker_.post([value = value_, order = std::move(order)]() mutable { order(*value); });
  }

 private:
  Executor& worker_;
  Executor& home_;
  std::shared_ptr<T> value_;
};

}  // namespace marigold
