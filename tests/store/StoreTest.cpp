#include <gtest/gtest.h>

#include "store/FileWatching.h"
#include "store/Publication.h"
#include "support/ManualEventLoop.h"

namespace marigold {
namespace {

TEST(Publication, AnOlderReadingReplacesANewerOneOnlyWhereThatSaysNothingAnyMore) {
  const Date now{Seconds{1'000'000}};
  constexpr double never = -99;
  // A reading and its windows' resets, all in seconds after now.
  const auto reading = [&](double captured, const std::vector<double>& resets) {
    ProviderSnapshot made{.capturedAt = now + Seconds{captured}};
    for (const double reset : resets) {
      made.windows.push_back(
          {.resetsAt = reset == never ? std::nullopt : std::optional(now + Seconds{reset})});
    }
    return made;
  };
  const ProviderSnapshot older = reading(-6, {60});
  // What stands, what comes, whether that is taken.
  using Row = std::tuple<ProviderSnapshot, ProviderSnapshot, bool>;
  for (const auto& [standing, fresh, isTaken] :
       {Row{reading(-5, {60}), older, false}, Row{older, reading(-6, {70}), true},
        Row{older, reading(-5, {60}), true}, Row{reading(0, {60}), older, false},
        Row{reading(1, {60}), older, true},  // the future
        Row{reading(-5, {}), older, true}, Row{reading(-5, {60}), reading(-6, {}), true},
        Row{reading(-5, {0, -1}), older, true}, Row{reading(-5, {-1, 1}), older, false},
        Row{reading(-5, {-1, never}), older, false}}) {
    for (const bool takesBack : {false, true}) {
      for (const auto order : {Publication::Order::byCapture, Publication::Order::byArrival}) {
        Publication publication(order);
        publication.put(standing);
        const bool wins = isTaken || takesBack || order == Publication::Order::byArrival;
        const Answer answer = publication.arrive(publication.ask(), fresh, takesBack);
        EXPECT_EQ(publication.offer(answer, now), wins) << testing::PrintToString(takesBack);
        EXPECT_EQ(publication.snapshot(), wins ? fresh : standing);
      }
    }
  }
}

TEST(WatchBatch, AsksForARescanWherePathsSayTooLittle) {
  const WatchBatch rescan{.mustRescan = true};
  WatchBatch batch;
  for (int i = 0; i < 256; ++i) {
    batch.merge({std::to_string(i)}, false);
  }
  EXPECT_EQ(batch.paths.size(), 256U);
  batch.merge({"one more"}, false);
  batch.merge({"0"}, false);
  EXPECT_EQ(batch, rescan);
  // Too much below or lost on the way, a changed root; a directory that came, went or was renamed.
  for (const unsigned flags : {0x1U, 0x2U, 0x4U, 0x20U, 0x20100U, 0x20200U, 0x20800U}) {
    EXPECT_EQ(watchBatch({"/a", "/b"}, {0, flags}), rescan) << flags;
  }
  // Mounts and the like; a file that came, went or was renamed; a directory changed in itself.
  for (const unsigned flags : {0x0U, 0x58U, 0x10B00U, 0x21000U}) {
    EXPECT_EQ(watchBatch({"/b"}, {flags}), WatchBatch{.paths = {"/b"}}) << flags;
  }
}

class Coalescing : public testing::Test {
 protected:
  void submitAfter(double seconds, const std::string& path) {
    loop.advance(Seconds{seconds});
    events->submit({.paths = {path}});
  }
  void endAfter(double seconds, std::size_t run) {
    loop.advance(Seconds{seconds});
    dones.at(run)();
  }
  test::ManualEventLoop loop;
  Instant begin = loop.now();
  std::string runs;  // when each began, in seconds, and with what
  std::vector<WatchCoalescer::Done> dones;
  std::unique_ptr<WatchCoalescer> events = std::make_unique<WatchCoalescer>(
      loop, [this](const WatchBatch& batch, const WatchCoalescer::Done& done) {
        runs += " | " + std::to_string((loop.now() - begin) / std::chrono::seconds(1));
        for (const std::string& path : batch.paths) {
          runs += " " + path;
        }
        dones.push_back(done);
      });
};

TEST_F(Coalescing, WorksBatchesTogetherAndPausesByTheCostOfTheRunBefore) {
  events->submit({.paths = {"a"}});
  events->submit({.paths = {"b"}});
  EXPECT_EQ(runs, "");  // never inline
  submitAfter(1, "c");
  endAfter(1, 0);
  endAfter(18, 1);  // at 20 s, after 10 s
  submitAfter(0, "e");
  endAfter(30, 2);
  submitAfter(0, "f");
  endAfter(1, 3);
  EXPECT_EQ(runs, " | 0 a b | 10 c | 50 e | 51 f");
}

TEST_F(Coalescing, CancelledWorkHoldsUpNobodyAndStillPaces) {
  submitAfter(0, "a");
  submitAfter(1, "dropped");
  events->cancel();
  submitAfter(0, "b");
  submitAfter(1, "c");
  endAfter(0, 0);  // late: neither ends b's run nor starts c's
  endAfter(1, 1);  // at 3 s, after 2 s
  submitAfter(9, "dropped");
  events->cancel();
  endAfter(4, 2);  // at 16 s, after 5 s
  submitAfter(0, "d");
  loop.advance(Seconds{60});
  EXPECT_EQ(runs, " | 0 a | 1 b | 11 c | 36 d");
}

TEST_F(Coalescing, MayBeDestroyedByTheWorkItself) {
  const auto held = std::make_shared<int>(1);
  events = std::make_unique<WatchCoalescer>(loop, [this, held](const auto&, const auto& done) {
    events.reset();
    done();
    *held = 2;
  });
  submitAfter(0, "a");
  loop.settle();
  EXPECT_EQ(*held, 2);
}

}  // namespace
}  // namespace marigold
