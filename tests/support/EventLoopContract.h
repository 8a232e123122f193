#pragma once

#include <algorithm>
#include <thread>

#include <gtest/gtest.h>

#include "base/EventLoop.h"

namespace marigold {

/// What every event loop keeps to. A subject has a `loop` and `pass(Seconds)`, which runs it for
/// that long; `turn()`, which runs what is ready.
template <class Subject>
class EventLoopContract : public testing::Test {
 protected:
  Subject subject;
};
TYPED_TEST_SUITE_P(EventLoopContract);

TYPED_TEST_P(EventLoopContract, CallsTimersInOrderOfTheirTimesUntilCancelled) {
  auto& loop = this->subject.loop;
  std::string ran;
  const auto after = [&](double seconds, char name) {
    const Instant due = loop.now() + continuousDuration(Seconds{seconds});
    return loop.callAt(due, [&, due, name] {
      EXPECT_GE(loop.now(), due);
      ran += name;
    });
  };
  const Timer late = after(0.03, 'l');
  const Timer early = after(0.01, 'e');
  Timer cancelled = after(0.02, '!');
  const Timer past = after(-3600, '0');
  const Instant sameTurn = loop.now() + continuousDuration(Seconds{0.015});
  Timer second;
  const Timer first = loop.callAt(sameTurn, [&] { second.cancel(); });
  second = loop.callAt(sameTurn, [&] { ran += '!'; });
  loop.post([&] { loop.post([&] { ran += 'n'; }), ran += 'p'; });
  cancelled.cancel();
  EXPECT_EQ(ran, "");
  this->subject.pass(Seconds{0.05});
  EXPECT_EQ(ran, "p0nel");
}

TYPED_TEST_P(EventLoopContract, MissesNothingThatThreadsPost) {
  auto& loop = this->subject.loop;
  std::vector<std::vector<int>> ran(3);
  std::vector<std::thread> threads;
  for (std::vector<int>& mine : ran) {
    threads.emplace_back([&loop, &mine] {
      for (int i = 0; i < 1000; ++i) {
        loop.post([&mine, i] { mine.push_back(i); });
      }
    });
  }
  this->subject.pass(Seconds{0.001});
  for (std::thread& thread : threads) {
    thread.join();
  }
  this->subject.turn();
  for (const std::vector<int>& mine : ran) {
    EXPECT_EQ(mine.size(), 1000U);
    EXPECT_TRUE(std::ranges::is_sorted(mine));
  }
}

TYPED_TEST_P(EventLoopContract, DropsWhatWaitsAndWhatComesLaterOnceClosed) {
  auto& loop = this->subject.loop;
  const auto owned = std::make_shared<bool>(false);
  const auto work = [owned] { *owned = true; };
  const Timer timer = loop.callAfter(Seconds{0}, work);
  loop.post(work);
  loop.close();
  loop.post(work);
  EXPECT_FALSE(loop.callAfter(Seconds{0}, work));
  EXPECT_EQ(owned.use_count(), 3) << "the timer's is its holder's";
  this->subject.turn();
  EXPECT_FALSE(*owned);
}

REGISTER_TYPED_TEST_SUITE_P(EventLoopContract, CallsTimersInOrderOfTheirTimesUntilCancelled,
                            MissesNothingThatThreadsPost,
                            DropsWhatWaitsAndWhatComesLaterOnceClosed);

}  // namespace marigold
