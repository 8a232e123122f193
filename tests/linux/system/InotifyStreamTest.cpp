#include <algorithm>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "linux/system/FileEventDelivery.h"
#include "linux/system/InotifyStream.h"
#include "support/EventStreamContract.h"
#include "support/SimplePorts.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using namespace eventFlag;

// One stream and what it delivered.
class InotifyStreamTest : public testing::Test {
 protected:
  // Watches `path` and waits until the watches stand.
  void watch(const std::string& path, std::size_t limit = 100, Seconds latency = Seconds{0.01}) {
    stream = InotifyStreamSource(log, limit, Seconds{0.02})
                 .open(path, latency, [this](const auto& events) {
                   std::unique_lock lock(mutex);
                   seen.insert(seen.end(), events.begin(), events.end());
                   changed.notify_all();
                   changed.wait(lock, [this] { return !blocked; });
                 });
    expect(path, mustScanSubDirs);
    forget();
  }
  // Waits for an event of this path with all of these flags; only a fault meets the deadline.
  void expect(const std::string& path, std::uint32_t flags) {
    std::unique_lock lock(mutex);
    const auto wanted = [&](const FileEvent& event) {
      return event.path == path && (event.flags & flags) == flags;
    };
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(20),
                                 [&] { return std::ranges::any_of(seen, wanted); }))
        << path << " " << flags;
  }
  void forget() {
    const std::lock_guard lock(mutex);
    seen.clear();
  }
  void block(bool wanted) {
    const std::lock_guard lock(mutex);
    blocked = wanted;
    changed.notify_all();
  }

  test::TemporaryDirectory temporary;
  std::string root = temporary.path() + "/root";
  test::RecordingLog log;  // the stream's thread writes it before it delivers
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<FileEvent> seen;
  bool blocked = false;  // while set, the stream stays in its callback
  std::unique_ptr<EventStream> stream;
};

TEST_F(InotifyStreamTest, TellsWhatHappensUntilItsEnd) {
  InotifyStreamSource source(log);
  test::tellsWhatHappensUntilItsEnd(source);
}

TEST_F(InotifyStreamTest, LosesNothingInDirectoriesThatAppear) {
  temporary.write("elsewhere/a/b/moved", "");
  fs::create_directory(root);
  watch(root);
  std::vector<std::string> files{root + "/in/a/b/moved"};
  for (int i = 0; i < 30; ++i) {  // faster than watches can follow
    files.push_back(temporary.write("root/" + std::to_string(i) + "/m/deep", ""));
  }
  fs::rename(temporary.path() + "/elsewhere", root + "/in");
  for (const std::string& path : files) {
    expect(path, itemCreated | itemIsFile);
  }
  expect(temporary.write(files.back(), "x"), itemModified);
  fs::rename(files[0], files[1]);
  expect(files[0], itemRenamed);
  fs::remove(files[1]);
  expect(files[1], itemRemoved);
}

TEST_F(InotifyStreamTest, FollowsDirectoriesThatMoveAndForgetsThoseThatLeave) {
  const std::string outside = temporary.path() + "/outside";
  temporary.write("root/a/deep/f", "");
  temporary.write("root/gone/deep/f", "");
  watch(root);
  fs::rename(root + "/a", root + "/b");
  expect(root + "/b", itemRenamed | itemIsDir);
  expect(temporary.write("root/b/deep/f", "x"), itemModified);
  fs::rename(root + "/gone", outside);
  expect(root + "/gone", itemRenamed | itemIsDir);
  fs::create_directory_symlink(outside, root + "/link");
  expect(root + "/link", itemCreated);
  temporary.write("outside/deep/f", "x");
  fs::remove_all(root + "/b");
  expect(root + "/b", itemRemoved | itemIsDir);  // events come in order
  expect(temporary.write("root/b/deep/again", ""), itemCreated);
  stream.reset();
  for (const FileEvent& event : seen) {
    EXPECT_FALSE(event.path.ends_with("/deep/f") && event.path != root + "/b/deep/f") << event.path;
  }
}

TEST_F(InotifyStreamTest, FollowsTheRootThroughItsComingAndGoing) {
  const std::string base = temporary.path() + "/base";
  const std::string home = base + "/home";
  const std::string direct = home + "/.tool/sessions";
  const std::string link = base + "/link";
  const std::string away = temporary.path() + "/away";
  const auto relink = [&](const std::string& target) {
    fs::create_symlink(target, link + ".new");
    fs::rename(link + ".new", link);
  };
  using Step = std::function<void()>;
  for (const auto& [path, leave, comeBack] : std::vector<std::tuple<std::string, Step, Step>>{
           {direct, [&] { fs::rename(direct, away); }, [&] { fs::rename(away, direct); }},
           {direct, [&] { fs::rename(home, away); }, [&] { fs::rename(away, home); }},
           {direct, [&] { fs::remove_all(base); }, [&] { fs::create_directories(direct); }},
           {link, [&] { fs::rename(home, away); }, [&] { fs::rename(away, home); }},
           {link, [&] { relink("link"); }, [&] { relink(home); }}}) {
    fs::create_directories(direct);
    fs::create_directory_symlink("./home/../home/.tool/sessions", link);
    watch(path);
    for (const Step& step : {leave, comeBack}) {
      forget();
      step();
      expect(path, rootChanged);
    }
    expect(temporary.write(path + "/2026/f", ""), itemIsFile);
    stream.reset();
    fs::remove_all(base);
  }
  fs::create_directories(direct);
  fs::rename(base, away);
  watch(direct);
  fs::rename(away, base);
  fs::rename(base, away);  // before it is looked at
  expect(direct, rootChanged);
}

TEST_F(InotifyStreamTest, AnOverflowOfTheQueueAsksForARescanAndStartsAfresh) {
  int queued = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queued;
  fs::create_directory(root);
  watch(root);
  block(true);
  expect(temporary.write("root/first", ""), itemCreated);
  for (int i = 0; i <= queued / 4; ++i) {  // each renaming is two events
    fs::rename(root + "/first", root + "/second");
    fs::rename(root + "/second", root + "/first");
  }
  temporary.write("root/created/unseen", "");
  block(false);
  expect(root, mustScanSubDirs | kernelDropped);
  expect(temporary.write("root/created/unseen", "x"), itemModified);
}

TEST_F(InotifyStreamTest, AShortageOfWatchesLeavesTheNewestWatchedAndIsRepaired) {
  const auto expectChangesIn = [&](const std::string& name) {
    expect(temporary.write("root/" + name + "/f", "x"), itemIsFile);
    forget();
  };
  const auto age = [&](const std::string& name, int hours) {
    fs::last_write_time(root + name, fs::file_time_type::clock::now() - std::chrono::hours(hours));
  };
  for (const char* name : {"/a", "/b", "/c", "/d"}) {
    fs::create_directories(root + name + "/inner");
    age(name + std::string("/inner"), *name == 'b' ? 1 : 2);
  }
  age("/a", 3);
  age("/b", 1);
  age("/c", 2);
  age("/d", 4);
  watch(root, 5);  // the root, b and c with what they hold
  expectChangesIn("b/inner");
  expectChangesIn("c");
  age("/c", 2);
  age("/c/inner", 5);
  fs::create_directory(root + "/e");
  expect(root + "/e", itemCreated | itemIsDir);
  expectChangesIn("e");
  expectChangesIn("c");
  EXPECT_EQ(log.lines.size(), 1U);
  // Each that goes makes room for one that waits.
  for (const auto& [gone, next] :
       {std::pair{"b", "a"}, std::pair{"e", "d"}, std::pair{"d", "c/inner"}}) {
    fs::remove_all(root + "/" + gone);
    expect(root + "/" + next, mustScanSubDirs);
    expectChangesIn(next);
  }
}

TEST(FileEventDelivery, MergesMoreThanAnybodyWouldLookAt) {
  FileEventDelivery delivery("/r");
  for (const int count : {4096, 4097, 1}) {
    for (int i = 0; i < count; ++i) {
      delivery.add("/" + std::to_string(i), itemCreated);
    }
    const std::vector<FileEvent> events = delivery.take();
    EXPECT_EQ(events.size(), count == 4097 ? 1U : static_cast<std::size_t>(count));
    EXPECT_EQ(events[0].path, count == 4097 ? "/r" : "/r/0");
    EXPECT_EQ(events[0].flags, count == 4097 ? mustScanSubDirs : itemCreated);
  }
}

TEST_F(InotifyStreamTest, SaysOnceThatTheSystemHasNothingToWatchWith) {
  InotifyStreamSource source(log);
  rlimit usual{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
  const rlimit none{.rlim_cur = 0, .rlim_max = usual.rlim_max};
  // A sanitizer takes descriptors to find out about an object, the first time.
  Log& known = log;
  known.error("");
  for (const std::size_t said : {2U, 3U}) {
    EXPECT_TRUE(source.open(temporary.path(), Seconds{0}, [](const auto&) {}));
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    for (int i = 0; i < 3; ++i) {
      EXPECT_FALSE(source.open(temporary.path(), Seconds{0}, [](const auto&) {}));
    }
    EXPECT_EQ(log.lines.size(), said);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
  }
}

TEST_F(InotifyStreamTest, EndsAtOnceAndLeavesNothingOpen) {
  temporary.write("root/a/b/f", "");
  const auto before = test::openDescriptors();
  for (int i = 0; i < 20; ++i) {
    watch(root, 100, Seconds{3600});
    stream.reset();  // the next one is ended while it sets up its watches
    (void)InotifyStreamSource(log).open(root, Seconds{0.01}, [](const auto&) {});
  }
  EXPECT_EQ(test::openDescriptors(), before);
}

}  // namespace
}  // namespace marigold
