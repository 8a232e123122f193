#include <gtest/gtest.h>
#include <pthread.h>

#include "base/Worker.h"
#include "support/EventLoopContract.h"
#include "support/ManualEventLoop.h"

namespace marigold {
namespace {

struct Manual {
  test::ManualEventLoop loop;
  void turn() { loop.settle(); }
  void pass(Seconds length) { loop.advance(length); }
};
INSTANTIATE_TYPED_TEST_SUITE_P(Manual, EventLoopContract, Manual);

TEST(Worker, AnswersInOrderAndWhenStoppedLetsTheRunningWorkEndAndDropsTheRest) {
  test::ManualEventLoop home;
  Worker worker(home);
  Isolated<int> number(worker, home, std::make_unique<int>(0));
  const std::thread::id asker = std::this_thread::get_id();
  std::atomic<bool> started = false;
  std::atomic<bool> release = false;
  std::vector<int> answers;
  for (int i = 1; i <= 100; ++i) {
    number.ask(
        [&, i](int& value) {
          EXPECT_NE(std::this_thread::get_id(), asker);
          if (i == 100) {
            started = true;
            started.notify_all();
            release.wait(false);
          }
          return ++value;
        },
        [&](int value) { answers.push_back(value); });
  }
  started.wait(false);
  const auto owned = std::make_shared<int>(0);
  number.tell([owned](int& value) { value = *owned; });
  std::thread stopper([&] { worker.stop(); });
  while (owned.use_count() > 1) {  // dropped while the piece before still runs
    std::this_thread::yield();
  }
  number.tell([owned](int& value) { value = *owned; });
  EXPECT_EQ(owned.use_count(), 1);
  release = true;
  release.notify_all();
  stopper.join();
  EXPECT_TRUE(answers.empty());
  home.settle();
  EXPECT_EQ(answers.size(), 100U);
  EXPECT_TRUE(std::ranges::is_sorted(answers) && answers.back() == 100);
}

#ifdef __linux__
TEST(Worker, AsksAgainForAThreadThatTheSystemRefuses) {
  test::ManualEventLoop home;
  Worker worker(home);
  std::atomic<int> ran = 0;
  pthread_attr_t usual;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  pthread_attr_t huge = usual;
  ASSERT_EQ(pthread_attr_setstacksize(&huge, std::size_t{1} << 50), 0);
  ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
  Worker stopped(home);
  stopped.post([] {});
  stopped.stop();
  home.advance(Seconds{2});
  EXPECT_FALSE(home.nextTimer()) << "it wants none any more";
  worker.post([&] {
    ran = 1;
    ran.notify_all();
  });
  home.advance(Seconds{4.5});
  EXPECT_EQ(pthread_setattr_default_np(&usual), 0);
  EXPECT_EQ(ran, 0);
  home.advance(Seconds{1});
  ran.wait(0);
  EXPECT_FALSE(home.nextTimer());
  for (int round = 2; round < 100; ++round) {  // it waits for work more often than not
    worker.post([&] {
      ++ran;
      ran.notify_all();
    });
    ran.wait(round - 1);
  }
}
#endif

}  // namespace
}  // namespace marigold
