#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "InotifyStream.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr auto created = eventFlag::itemCreated;
constexpr auto removed = eventFlag::itemRemoved;
constexpr auto renamed = eventFlag::itemRenamed;
constexpr auto modified = eventFlag::itemModified;
constexpr auto file = eventFlag::itemIsFile;
constexpr auto directory = eventFlag::itemIsDir;

class CountingLog final : public Log {
 public:
  void note(std::string_view) override {}
  void error(std::string_view) override { ++errors; }
  std::atomic<int> errors = 0;
};

void append(const std::string& path) {
  std::ofstream(path, std::ios::app) << "line\n";
}

std::ptrdiff_t openDescriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

// One stream and what it delivered.
class InotifyStreamTest : public testing::Test {
 protected:
  // Watches `path` and waits until the watches stand.
  void watch(const std::string& path, std::size_t limit = InotifyStreamSource::defaultWatchLimit,
             Seconds latency = Seconds{0.01}) {
    forget();
    stream = InotifyStreamSource(log, limit).open(path, latency, [this](const auto& events) {
      take(events);
    });
    expect(path, eventFlag::mustScanSubDirs);
    forget();
  }
  void take(const std::vector<FileEvent>& events) {
    std::unique_lock lock(mutex_);
    times_.push_back(Clock::now());
    events_.insert(events_.end(), events.begin(), events.end());
    changed_.notify_all();
    changed_.wait(lock, [this] { return !blocked_; });
  }
  // Waits for an event of exactly this path with all of these flags; only a fault meets the
  // deadline.
  void expect(const std::string& path, std::uint32_t flags) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(
        changed_.wait_for(lock, std::chrono::seconds(20),
                          [&] {
                            return std::ranges::any_of(events_, [&](const FileEvent& event) {
                              return event.path == path && (event.flags & flags) == flags;
                            });
                          }))
        << path << " " << flags;
  }
  bool anyBelow(const std::string& path) {
    const std::lock_guard lock(mutex_);
    return std::ranges::any_of(
        events_, [&](const FileEvent& event) { return event.path.starts_with(path + "/"); });
  }
  void forget() {
    const std::lock_guard lock(mutex_);
    events_.clear();
    times_.clear();
  }
  // Keeps the stream in its callback, after the next delivery, while `overwhelm` runs.
  void whileBlocked(const std::function<void()>& overwhelm) {
    setBlocked(true);
    append(root + "/first");
    expect(root + "/first", created);
    forget();
    overwhelm();
    setBlocked(false);
  }
  void setBlocked(bool blocked) {
    const std::lock_guard lock(mutex_);
    blocked_ = blocked;
    changed_.notify_all();
  }

  test::TemporaryDirectory temporary;
  std::string root = temporary.path() + "/root";
  CountingLog log;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<FileEvent> events_;
  std::vector<Clock::time_point> times_;
  bool blocked_ = false;
  std::unique_ptr<EventStream> stream;
};

TEST_F(InotifyStreamTest, ReportsWhatHappensToFiles) {
  const std::string rollout = temporary.write("root/2026/06/rollout-1.jsonl", "");
  watch(root);
  for (int i = 0; i < 2; ++i) {  // each append
    forget();
    append(rollout);
    expect(rollout, modified | file);
  }
  expect(temporary.write("root/2026/.new", "x"), created | file);
  fs::rename(root + "/2026/.new", rollout);
  expect(root + "/2026/.new", renamed | file);
  expect(rollout, renamed | file);
  fs::remove(rollout);
  expect(rollout, removed | file);
}

TEST_F(InotifyStreamTest, LosesNothingInDirectoriesThatAppear) {
  temporary.write("elsewhere/a/b/moved", "");
  fs::create_directory(root);
  watch(root);
  std::vector<std::string> files;
  for (int i = 0; i < 30; ++i) {  // faster than watches can follow
    const std::string top = "root/" + std::to_string(i);
    files.push_back(temporary.write(top + "/top", ""));
    files.push_back(temporary.write(top + "/m/d/deep", ""));
  }
  fs::rename(temporary.path() + "/elsewhere", root + "/in");
  files.push_back(root + "/in/a/b/moved");
  for (const std::string& path : files) {
    expect(path, created | file);
  }
  expect(root + "/29", created | directory);
  expect(root + "/in", renamed | directory);
  forget();
  for (const std::string& path : files) {
    append(path);
    expect(path, modified | file);
  }
}

TEST_F(InotifyStreamTest, FollowsDirectoriesThatMoveAndForgetsThoseThatLeave) {
  const std::string outside = temporary.path() + "/outside";
  temporary.write("root/a/deep/f", "");
  temporary.write("root/gone/deep/f", "");
  watch(root);
  fs::rename(root + "/a", root + "/b");
  expect(root + "/a", renamed | directory);
  expect(root + "/b", renamed | directory);
  append(root + "/b/deep/f");
  expect(root + "/b/deep/f", modified);
  EXPECT_FALSE(anyBelow(root + "/a"));

  fs::rename(root + "/gone", outside);
  expect(root + "/gone", renamed | directory);
  fs::create_directory_symlink(outside, root + "/link");
  expect(root + "/link", created | file);
  append(outside + "/deep/f");
  expect(temporary.write("root/marker", ""), created);  // events come in order
  EXPECT_FALSE(anyBelow(root + "/gone") || anyBelow(root + "/link"));

  fs::remove_all(root + "/b");
  expect(root + "/b/deep", removed | directory);
  expect(root + "/b", removed | directory);
  expect(temporary.write("root/b/deep/again", ""), created);
}

TEST_F(InotifyStreamTest, FollowsTheRootThroughItsComingAndGoing) {
  const std::string base = temporary.path() + "/base";
  const std::string home = base + "/home";
  const std::string direct = home + "/.tool/sessions";
  const std::string absolute = base + "/absolute/.tool/sessions";
  const std::string relative = base + "/relative";
  const std::string away = temporary.path() + "/away";
  using Step = std::function<void()>;
  struct Case {
    std::string name, path;
    Step leave, comeBack;
  };
  const auto moves = [&](const char* name, const std::string& path, const std::string& moved) {
    return Case{.name = name,
                .path = path,
                .leave = [moved, &away] { fs::rename(moved, away); },
                .comeBack = [moved, &away] { fs::rename(away, moved); }};
  };
  const auto relink = [&](const std::string& target) {
    fs::create_symlink(target, relative + ".new");
    fs::rename(relative + ".new", relative);
  };
  const std::vector<Case> cases = {
      moves("root moved", direct, direct),
      moves("ancestor moved", direct, home),
      moves("link to an ancestor moved", absolute, base + "/absolute"),
      moves("ancestor of a link's target moved", relative, home + "/.tool"),
      {.name = "root deleted",
       .path = direct,
       .leave = [&] { fs::remove_all(direct); },
       .comeBack = [&] { fs::create_directory(direct); }},
      {.name = "ancestors deleted",
       .path = direct,
       .leave = [&] { fs::remove_all(base); },
       .comeBack = [&] { fs::create_directories(direct); }},
      {.name = "link to a circle, then to another tree",
       .path = relative,
       .leave = [&] { relink("relative"); },
       .comeBack = [&] { relink("home"); }},
      {.name = "link to another tree and back",
       .path = relative,
       .leave = [&] { relink(base); },
       .comeBack = [&] { relink("absolute"); }},
  };
  for (const auto& [name, path, leave, comeBack] : cases) {
    SCOPED_TRACE(name);
    fs::create_directories(direct);
    fs::create_directory_symlink(home, base + "/absolute");
    fs::create_directory_symlink("./home/../home/.tool/sessions", relative);
    watch(path);
    for (const Step& step : {leave, comeBack}) {
      forget();
      step();
      expect(path, eventFlag::rootChanged);
    }
    fs::create_directory(path + "/2026");
    append(path + "/2026/f");
    expect(path + "/2026/f", file);
    stream.reset();
    fs::remove_all(base);
  }
}

TEST_F(InotifyStreamTest, FirstEventComesAtOnceAndLaterOnesNoSoonerThanTheLatency) {
  fs::create_directory(root);
  watch(root, InotifyStreamSource::defaultWatchLimit, Seconds{0.05});
  for (const char* name : {"/1", "/2", "/3"}) {
    for (int i = 0; i < 200; ++i) {
      append(root + name);
    }
    expect(root + name, modified);
  }
  stream.reset();
  for (std::size_t i = 1; i < times_.size(); ++i) {
    EXPECT_GE(times_[i] - times_[i - 1], std::chrono::milliseconds(50));
  }
  // Neither the first delivery nor the end waits for the latency.
  watch(root, InotifyStreamSource::defaultWatchLimit, Seconds{3600});
}

TEST_F(InotifyStreamTest, AnOverflowOfTheQueueAsksForARescanAndStartsAfresh) {
  std::ifstream limit("/proc/sys/fs/inotify/max_queued_events");
  int queued = 0;
  limit >> queued;
  fs::create_directory(root);
  watch(root);
  whileBlocked([&] {
    for (int i = 0; i <= queued / 4; ++i) {  // each renaming is two events
      fs::rename(root + "/first", root + "/second");
      fs::rename(root + "/second", root + "/first");
    }
    temporary.write("root/created/unseen", "");
  });
  expect(root, eventFlag::mustScanSubDirs | eventFlag::kernelDropped);
  append(root + "/created/unseen");
  expect(root + "/created/unseen", modified);
}

TEST_F(InotifyStreamTest, AStormBecomesOneEventForTheRoot) {
  fs::create_directory(root);
  watch(root);
  whileBlocked([&] {
    for (int i = 0; i < 4200; ++i) {
      append(root + "/" + std::to_string(i));
    }
  });
  expect(root, eventFlag::mustScanSubDirs);
  EXPECT_FALSE(anyBelow(root));
  expect(temporary.write("root/later", ""), created);
}

TEST_F(InotifyStreamTest, RunningOutOfWatchesAsksForARescanAndIsLoggedOnce) {
  fs::create_directories(root + "/a");
  watch(root, 2);
  EXPECT_EQ(log.errors, 0);
  for (const char* name : {"/b", "/c"}) {
    fs::create_directory(root + name);
    expect(root + name, created | directory | eventFlag::mustScanSubDirs);
  }
  EXPECT_EQ(log.errors, 1);
  fs::remove(root + "/a");  // makes room
  expect(root + "/a", removed | directory);
  temporary.write("root/d/f", "");
  expect(root + "/d/f", created);
  append(root + "/d/f");
  expect(root + "/d/f", modified);

  watch(root, 0);  // not even the root
  for (const auto* step : {"goes", "comes back"}) {
    SCOPED_TRACE(step);
    forget();
    fs::exists(root) ? fs::rename(root, root + "2") : fs::rename(root + "2", root);
    expect(root, eventFlag::rootChanged);
  }
  EXPECT_EQ(log.errors, 2);
}

TEST_F(InotifyStreamTest, LeavesNothingOpen) {
  temporary.write("root/a/b/f", "");
  const auto before = openDescriptors();
  for (int i = 0; i < 20; ++i) {
    watch(root);
    fs::rename(root, root + ".away");
    expect(root, eventFlag::rootChanged);
    stream.reset();
    fs::rename(root + ".away", root);
    // Ended while it sets up its watches.
    (void)InotifyStreamSource(log).open(root, Seconds{0.01}, [](const auto&) {});
  }
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace marigold
