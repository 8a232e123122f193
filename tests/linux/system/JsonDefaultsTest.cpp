#include <csignal>
#include <random>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/BoundedFile.h"
#include "base/OwnedDescriptor.h"
#include "linux/system/JsonDefaults.h"
#include "model/DiskCache.h"
#include "support/DefaultsContract.h"
#include "support/SimplePorts.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

struct JsonDefaultsTest : testing::Test {
  static std::string content(const std::string& path) {
    return readWholeFile(path, 10'000).value_or("unreadable");
  }

  test::RecordingLog log;
  test::TemporaryDirectory directory;
  std::string file = directory.path() + "/preferences.json";
};

TEST_F(JsonDefaultsTest, KeepsFlagsAndTextsApartUnderExactKeys) {
  JsonDefaults stored(file, log);
  test::keepFlagsAndTextsApartUnderExactKeys(stored);
  test::MemoryDefaults kept;  // the one of the other tests, too
  test::keepFlagsAndTextsApartUnderExactKeys(kept);
}

TEST_F(JsonDefaultsTest, MembersOfOtherTypesAreKept) {
  directory.write("preferences.json", R"({"z" : [{"a": 1e400}], "n": 9007199254740993, "o": {}})");
  JsonDefaults(file, log).apply({{"m", false}, {"o", "x"}});
  EXPECT_EQ(content(file),
            "{\"m\":false,\"n\":9007199254740993,\"o\":\"x\",\"z\":[{\"a\":1e400}]}\n");
}

TEST_F(JsonDefaultsTest, WhatIsNoPreferencesFileIsMovedAsideAndReported) {
  const std::string notes = directory.write("notes.txt", "not preferences");
  directory.write("preferences.json", "");
  JsonDefaults(file, log).set("a", true);
  EXPECT_TRUE(log.lines.empty()) << "nothing is lost of an empty file";
  for (const auto& [end, spoil] : std::vector<std::pair<std::string, std::function<void()>>>{
           {"", [&] { directory.write("preferences.json", "[true]"); }},
           {"-2", [&] { directory.write("preferences.json/inside", "kept"); }},
           {"-3", [&] { fs::create_symlink("preferences.json", file); }},
           {"-4", [&] { fs::create_symlink(notes, file); }}}) {
    spoil();
    log.lines.clear();
    JsonDefaults(file, log).set("a", true);
    EXPECT_THAT(log.lines, ElementsAre(HasSubstr(file + ".corrupt" + end)));
    EXPECT_EQ(content(file), "{\"a\":true}\n");
    fs::remove(file);
  }
  EXPECT_EQ(content(file + ".corrupt"), "[true]");
  EXPECT_EQ(content(notes), "not preferences");
}

TEST_F(JsonDefaultsTest, WhatCannotBeReadIsLeftAloneAndAFailedSaveIsMadeUpFor) {
  JsonDefaults defaults(file, log);
  defaults.set("a", true);
  test::asOrdinaryUser([&] {
    fs::permissions(directory.path(), fs::perms::owner_read | fs::perms::owner_exec);
    defaults.set("a", false);
    defaults.set("b", true);
    fs::permissions(directory.path(), fs::perms::owner_all);
    fs::permissions(file, fs::perms::none);
    JsonDefaults(file, log).set("c", true);
    fs::permissions(file, fs::perms::owner_all);
  });
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("cannot be saved"), HasSubstr("cannot be read")));
  EXPECT_EQ(content(file), "{\"a\":true}\n");
  defaults.set("b", true);  // unchanged, but still to be saved
  EXPECT_EQ(content(file), "{\"a\":false,\"b\":true}\n");
}

TEST_F(JsonDefaultsTest, ChangesOfOthersAreTakenOverAndNeverUndone) {
  LinuxEventLoop loop;
  directory.write("preferences.json", "{\"0\":true}");
  JsonDefaults defaults(file, log);
  JsonDefaults other(file, log);
  int told = 0;
  defaults.onChange = [&] { ++told; };
  defaults.follow(loop);
  const auto expectTold = [&](int times, std::optional<bool> a, const std::string& step) {
    loop.dispatch();
    EXPECT_EQ(std::exchange(told, 0), times) << step;
    EXPECT_EQ(defaults.flag("a"), a) << step;
    pollfd idle{.fd = loop.descriptor(), .events = POLLIN};
    EXPECT_EQ(::poll(&idle, 1, 0), 0) << step;
  };
  expectTold(0, {}, "known from the start");
  other.set("a", true);
  defaults.set("b", true);
  EXPECT_EQ(content(file), "{\"0\":true,\"a\":true,\"b\":true}\n");
  expectTold(1, true, "stored before it was told");
  defaults.set("c", true);
  expectTold(0, true, "its own change");
  other.set("a", false);
  expectTold(1, false, "another instance");
  directory.write("preferences.json", "{\"a\":true}");
  expectTold(1, true, "an edit by hand");
  directory.write("preferences.json", "{\"a\": true}");
  expectTold(0, true, "the same again");
  directory.write("preferences.json", "{\"a\":");
  expectTold(0, true, "half an edit");
  fs::remove(file);
  expectTold(0, true, "no file");
  fs::create_symlink("away/kept.json", file);
  expectTold(0, true, "a link into the void");
  directory.write("away/kept.json", "{\"a\":false}");
  expectTold(1, false, "where the link leads");
  directory.write("away/kept.json", "{\"a\":true}");
  expectTold(1, true, "there again");
  fs::rename(directory.path() + "/away", directory.path() + "/moved");
  directory.write("away/kept.json", "{\"a\":false}");
  expectTold(1, false, "a directory in the place of another");
  other.set("d", true);
  EXPECT_EQ(content(directory.path() + "/away/kept.json"), "{\"a\":false,\"d\":true}\n");
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("not followed")));
  JsonDefaults late(file, log);
  late.onChange = [&] { ++told; };
  other.set("e", true);
  late.follow(loop);
  EXPECT_EQ(told, 1) << "stored between its reading and its following";
  loop.dispatch();  // the others hear of it
  told = 0;

  JsonDefaults below(directory.path() + "/new/app/preferences.json", log);
  below.onChange = [&] { ++told; };
  below.follow(loop);
  for (const std::string name : {"first", "second"}) {
    directory.write("new/app/preferences.json", "{\"" + name + "\":true}");
    loop.dispatch();
    EXPECT_EQ(std::exchange(told, 0), 1) << name;
    fs::rename(directory.path() + "/new/app", directory.path() + "/new/" + name);
    loop.dispatch();
  }
  for (const std::string name : {"first", "second"}) {
    fs::create_directory_symlink(name, directory.path() + "/new/app");
    loop.dispatch();
    EXPECT_EQ(std::exchange(told, 0), 1) << "a link to the " << name;
    fs::remove(directory.path() + "/new/app");
  }
}

TEST_F(JsonDefaultsTest, InstancesThatStoreAtTheSameTimeLoseNothing) {
  constexpr int rounds = 20;
  const auto store = [&](const std::string& name) {
    JsonDefaults defaults(file, log);
    for (int i = 0; i < rounds; ++i) {
      defaults.set(name + std::to_string(i), true);
    }
  };
  std::thread second([&] { store("second"); });
  store("first");
  second.join();
  EXPECT_EQ(std::ranges::count(content(file), ':'), 2 * rounds);
}

// Children store in the settings and the cache as fast as they can until they are killed.
TEST_F(JsonDefaultsTest, AKillAtAnyMomentSpoilsNothingAndLosesNothingThatWasStored) {
  const test::TemporaryDirectory place(fs::exists("/dev/shm") ? "/dev/shm"
                                                              : fs::temp_directory_path());
  const std::string settings = place.path() + "/preferences.json";
  const DiskCache cache({.environment = {{"MARIGOLD_CACHE_DIR", place.path()}}});
  const auto store = [&](int number, int tell) {
    JsonDefaults defaults(settings, log);
    for (;; ++number) {
      defaults.set("n", std::to_string(number));
      cache.save(
          {.provider = ProviderID::grok, .windows = {}, .planLabel = std::to_string(number)});
      if (::write(tell, &number, sizeof number) < 0) {
        ::_exit(1);
      }
    }
  };
  std::mt19937 luck(1);
  int stored = 0;
  int kept = 0;
  int unfinished = 0;
  for (int round = 0; round < 300; ++round) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const OwnedDescriptor heard(ends[0]);
    const pid_t child = ::fork();
    if (child == 0) {
      store(kept + 1, ends[1]);
    }
    ::close(ends[1]);
    ASSERT_EQ(::read(heard.get(), &stored, sizeof stored), sizeof stored);
    std::this_thread::sleep_for(std::chrono::microseconds(luck() % 1500));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    while (::read(heard.get(), &stored, sizeof stored) > 0) {
    }
    kept = std::stoi(JsonDefaults(settings, log).text("n").value_or("0"));
    EXPECT_TRUE(kept == stored || kept == stored + 1) << kept << " of " << stored;
    const auto cached = cache.load(ProviderID::grok);
    const int inCache = std::stoi(cached ? cached->planLabel.value_or("0") : "0");
    EXPECT_TRUE(inCache == stored || inCache == kept) << inCache << " of " << stored;
    unfinished += kept > stored ? 1 : 0;
    EXPECT_LE(std::distance(fs::directory_iterator(place.path()), fs::directory_iterator()), 4);
  }
  EXPECT_GT(unfinished, 0) << "killed at other moments only";
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

}  // namespace
}  // namespace marigold
