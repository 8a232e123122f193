#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "FileWatching.h"
#include "support/ManualEventLoop.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

using Paths = std::set<std::string>;

Paths numberedPaths(int from, int to) {
  Paths paths;
  for (int i = from; i < to; ++i) {
    paths.insert("/s/" + std::to_string(i));
  }
  return paths;
}

const WatchBatch rescan{.mustRescan = true};

TEST(WatchBatch, MergesUpToItsLimit) {
  WatchBatch batch;
  batch.merge(numberedPaths(0, 200), false);
  batch.merge(numberedPaths(100, 256), false);
  EXPECT_EQ(batch, (WatchBatch{.paths = numberedPaths(0, 256)}));
  for (const char* path : {"/s/256", "/s/1"}) {
    batch.merge({path}, false);
    EXPECT_EQ(batch, rescan);
  }
  WatchBatch asked{.paths = {"/s/1"}};
  asked.merge({"/s/2"}, true);
  EXPECT_EQ(asked, rescan);
}

TEST(WatchBatch, IsBuiltFromTheFlagsOfEvents) {
  const std::vector<std::pair<std::uint32_t, bool>> cases = {
      {0, false},
      {0x1, true},                 // must scan subdirectories
      {0x2, true},                 // dropped on this side
      {0x4, true},                 // dropped by the kernel
      {0x8 | 0x10 | 0x40, false},  // identifiers wrapped, history done, mounted
      {0x20, true},                // root changed
      {0x10000 | 0xB00, false},    // a file came, went or was renamed
      {0x20000 | 0x1000, false},   // a directory changed in itself only
      {0x20000 | 0x100, true},     // a directory was created,
      {0x20000 | 0x200, true},     // removed
      {0x20000 | 0x800, true},     // or renamed
  };
  for (const auto& [flags, wanted] : cases) {
    const WatchBatch batch =
        watchBatch({{.path = "/s/a", .flags = 0x11000}, {.path = "/s/b", .flags = flags}});
    EXPECT_EQ(batch, wanted ? rescan : (WatchBatch{.paths = {"/s/a", "/s/b"}})) << flags;
  }
  EXPECT_EQ(watchBatch({}), rescan);
}

// A source whose events the test makes up. It refuses the first stream.
struct ScriptedSource final : EventStreamSource {
  struct Stream final : EventStream {
    std::shared_ptr<Callback> callback;
  };
  std::unique_ptr<EventStream> open(const std::string& path, Seconds latency,
                                    Callback callback) override {
    EXPECT_EQ(latency, Seconds{0.5});
    opened.push_back(path);
    auto stream = std::make_unique<Stream>();
    stream->callback = std::make_shared<Callback>(std::move(callback));
    current = stream->callback;
    return opened.size() > 1 ? std::move(stream) : nullptr;
  }

  std::vector<std::string> opened;
  std::weak_ptr<Callback> current;
};

TEST(CodexWatcher, HoldsOneStreamBetweenStartAndStop) {
  const test::TemporaryDirectory home;
  ScriptedSource source;
  std::vector<WatchBatch> batches;
  const auto onChange = [&](WatchBatch batch) { batches.push_back(std::move(batch)); };
  EXPECT_EQ(CodexWatcher::make(source, home.path() + "/sessions", onChange), nullptr);

  const auto watcher = CodexWatcher::make(source, home.path(), onChange);
  EXPECT_EQ(source.opened.size(), 0U);
  watcher->start();  // refused
  watcher->start();
  watcher->start();
  EXPECT_EQ(source.opened, (std::vector{home.path(), home.path()}));
  (*source.current.lock())({{.path = "/s/a", .flags = eventFlag::itemModified}});
  (*source.current.lock())({});
  EXPECT_EQ(batches, (std::vector{WatchBatch{.paths = {"/s/a"}}, rescan}));
  watcher->stop();
  EXPECT_TRUE(source.current.expired());
  watcher->start();
  EXPECT_EQ(source.opened.size(), 3U);
}

TEST(WatchCoalescer, GapGrowsWithTheCostBetweenItsBounds) {
  const std::vector<std::pair<double, double>> cases = {{0, 1}, {0.1, 1},  {0.25, 1}, {0.5, 2},
                                                        {2, 8}, {7.5, 30}, {10, 30},  {20, 30}};
  for (const auto& [cost, gap] : cases) {
    EXPECT_EQ(WatchCoalescer::gap(Seconds{1}, 4, Seconds{cost}), Seconds{gap}) << cost;
  }
}

class Coalescing : public testing::Test {
 protected:
  std::unique_ptr<WatchCoalescer> make() {
    return std::make_unique<WatchCoalescer>(
        loop, [this](const WatchBatch& batch, const WatchCoalescer::Done& done) {
          const auto at = std::chrono::round<std::chrono::milliseconds>(loop.now() - begin);
          std::string line = std::to_string(at.count()) + (batch.mustRescan ? " rescan" : "");
          for (const std::string& path : batch.paths) {
            line += " " + path;
          }
          started.push_back(line);
          dones.push_back(done);
          if (inlineDone) {
            done();
          }
        });
  }
  void submitAfter(double seconds, Paths paths) {
    loop.advance(Seconds{seconds});
    events->submit({.paths = std::move(paths)});
  }
  void endAfter(double seconds, std::size_t run) {
    loop.advance(Seconds{seconds});
    dones.at(run)();
  }
  using Runs = std::vector<std::string>;  // when each began, in milliseconds, and with what

  test::ManualEventLoop loop;
  Instant begin = loop.now();
  bool inlineDone = false;
  Runs started;
  std::vector<WatchCoalescer::Done> dones;
  std::unique_ptr<WatchCoalescer> events = make();
};

TEST_F(Coalescing, RunsOnALaterTurnWithAllThatCameUntilThen) {
  inlineDone = true;
  events->submit({.paths = {"a"}});
  events->submit({.paths = {"b"}});
  EXPECT_EQ(started, Runs{});
  submitAfter(0.4, {"c"});
  loop.advance(Seconds{0.3});
  events->submit(rescan);
  submitAfter(9.3, numberedPaths(0, 257));
  EXPECT_EQ(started, (Runs{"0 a b", "1000 rescan"}));
  loop.settle();
  EXPECT_EQ(started.back(), "10000 rescan");  // at once after a quiet time
  EXPECT_EQ(events->runs(), 3);
  EXPECT_FALSE(loop.nextTimer().has_value());
}

TEST_F(Coalescing, BatchesDuringARunAreWorkedTogetherAfterItsPause) {
  submitAfter(0, {"a"});
  for (const char* path : {"b", "c", "d"}) {
    submitAfter(0.5, {path});
  }
  endAfter(0.5, 0);
  loop.advance(Seconds{60});
  EXPECT_EQ(started, (Runs{"0 a", "10000 b c d"}));
  EXPECT_EQ(events->runs(), 1);
}

TEST_F(Coalescing, CancelDropsWhatWaitsButKeepsThePause) {
  submitAfter(0, {"dropped"});
  events->cancel();
  submitAfter(5, {"a"});
  endAfter(1, 0);  // its pause lasts until 10 s
  submitAfter(1, {"dropped"});
  events->cancel();
  submitAfter(1, {"b"});
  loop.advance(Seconds{60});
  EXPECT_EQ(started, (Runs{"5000 a", "10000 b"}));
}

TEST_F(Coalescing, WorkOfACancelledLoopHoldsUpNobodyAndStillPaces) {
  submitAfter(0, {"a"});
  submitAfter(1, {"dropped"});
  events->cancel();
  submitAfter(0, {"b"});
  submitAfter(1, {"c"});
  EXPECT_EQ(started, (Runs{"0 a", "1000 b"}));
  endAfter(0, 0);  // late: neither ends b's run nor starts c's
  loop.advance(Seconds{1});
  EXPECT_EQ(started.size(), 2U);
  endAfter(0, 1);  // at 3 s, after 2 s
  endAfter(0, 1);
  EXPECT_EQ(events->runs(), 2);
  loop.advance(Seconds{9});
  EXPECT_EQ(started.back(), "11000 c");
  events->cancel();
  endAfter(4, 2);  // at 16 s, after 5 s
  submitAfter(0, {"d"});
  loop.advance(Seconds{60});
  EXPECT_EQ(started.back(), "36000 d");
}

TEST_F(Coalescing, MayBeDestroyedWhileItWaitsOrWorksAndByTheWorkItself) {
  submitAfter(0, {"a"});
  submitAfter(0, {"b"});
  events.reset();
  endAfter(0, 0);
  events = make();
  submitAfter(0, {"d"});
  events.reset();
  loop.advance(Seconds{60});
  EXPECT_EQ(started, (Runs{"0 a"}));

  const auto held = std::make_shared<int>(1);
  events = std::make_unique<WatchCoalescer>(
      loop, [this, held](const WatchBatch&, const WatchCoalescer::Done& done) {
        events.reset();
        done();
        *held = 2;
      });
  submitAfter(0, {"e"});
  loop.settle();
  EXPECT_EQ(*held, 2);
}

}  // namespace
}  // namespace marigold
