#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Worker.h"
#include "support/ManualEventLoop.h"

namespace marigold {
namespace {

using test::ManualEventLoop;

TEST(EventLoop, RunsTimersInOrderOfTheirTimes) {
  ManualEventLoop loop;
  std::string ran;
  const Timer late = loop.callAfter(Seconds{3}, [&] { ran += 'c'; });
  const Timer early = loop.callAfter(Seconds{1}, [&] { ran += 'a'; });
  const Timer past = loop.callAt(loop.now() - std::chrono::hours(1), [&] { ran += '0'; });
  loop.post([&] { ran += 'p'; });
  EXPECT_EQ(ran, "");
  loop.advance(Seconds{2});
  EXPECT_EQ(ran, "p0a");
  loop.advance(Seconds{1});
  EXPECT_EQ(ran, "p0ac");
}

TEST(EventLoop, ATimerCancelledByWorkOfTheSameTurnDoesNotFire) {
  ManualEventLoop loop;
  bool fired = false;
  Timer second;
  const Timer first = loop.callAfter(Seconds{1}, [&] { second.cancel(); });
  second = loop.callAfter(Seconds{1}, [&] { fired = true; });
  loop.advance(Seconds{2});
  EXPECT_FALSE(fired);
  EXPECT_FALSE(loop.nextTimer().has_value());
}

TEST(EventLoop, CloseDropsWhatWaitsAndWhatComesLater) {
  ManualEventLoop loop;
  auto owned = std::make_shared<int>(0);
  bool ran = false;
  loop.post([&, owned] { ran = true; });
  const Timer timer = loop.callAfter(Seconds{0}, [&] { ran = true; });
  loop.close();
  EXPECT_EQ(owned.use_count(), 1);
  loop.post([&] { ran = true; });
  loop.advance(Seconds{1});
  EXPECT_FALSE(ran);
}

TEST(Worker, IsolatedAnswersComeHomeInOrder) {
  ManualEventLoop home;
  Worker worker;
  Isolated<std::vector<int>> list(worker, home, std::make_unique<std::vector<int>>());
  std::vector<std::size_t> answers;
  const std::thread::id asker = std::this_thread::get_id();
  for (int i = 0; i < 100; ++i) {
    list.ask(
        [i, asker](std::vector<int>& numbers) {
          EXPECT_NE(std::this_thread::get_id(), asker);
          numbers.push_back(i);
          return numbers.size();
        },
        [&](std::size_t size) { answers.push_back(size); });
  }
  while (answers.size() < 100) {
    home.settle();
    std::this_thread::yield();
  }
  EXPECT_EQ(answers.front(), 1U);
  EXPECT_EQ(answers.back(), 100U);
}

TEST(Worker, StopLetsTheRunningWorkEndAndDropsTheRest) {
  Worker worker;
  std::atomic<bool> started = false;
  std::atomic<bool> release = false;
  std::atomic<int> ran = 0;
  worker.post([&] {
    started = true;
    started.notify_all();
    release.wait(false);
    ++ran;
  });
  started.wait(false);
  auto owned = std::make_shared<int>(0);
  worker.post([&, owned] { ++ran; });
  std::thread stopper([&] { worker.stop(); });
  while (owned.use_count() > 1) {  // dropped while the first piece still runs
    std::this_thread::yield();
  }
  release = true;
  release.notify_all();
  stopper.join();
  worker.post([&] { ++ran; });
  EXPECT_EQ(ran, 1);
}

}  // namespace
}  // namespace marigold
