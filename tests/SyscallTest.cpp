// Counts what reads of the tools' files ask of the system. The linker wraps the calls, in a program
// of its own.

#include <gmock/gmock.h>

#include "support/CodexHome.h"
#include "support/GrokHome.h"

#ifdef __clang__
#pragma clang diagnostic ignored "-Wreserved-identifier"
#endif

namespace {

// NOLINTBEGIN(*-reserved-identifier, *-global-variables, cert-dcl50-cpp, *-identifier-naming)
// The calls made, by name; of "open" only those of logs. "bytes" are those asked of "pread".
std::map<std::string_view, std::size_t> made;
// Called before each "openat" and "fstatat", with the path.
std::function<void(const std::string&)> interfere = [](auto&) {};

}  // namespace

extern "C" {  // the names are the linker's
int __real_open(const char* path, int flags, ...);
int __real_openat(int directory, const char* path, int flags, ...);
int __real_fstatat(int directory, const char* path, struct stat* status, int flags);
ssize_t __real_pread(int descriptor, void* into, size_t size, off_t offset);

int __wrap_open(const char* path, int flags, ...) {
  return __real_open(path, flags, 0600);  // the mode is of a new file: the cache
}
int __wrap_openat(int directory, const char* path, int flags, ...) {
  ++made[std::string_view(path).ends_with(".jsonl") ? "open" : "openat"];
  interfere(path);
  return __real_openat(directory, path, flags);
}
int __wrap_fstatat(int directory, const char* path, struct stat* status, int flags) {
  ++made["fstatat"];
  interfere(path);
  return __real_fstatat(directory, path, status, flags);
}
ssize_t __wrap_pread(int descriptor, void* into, size_t size, off_t offset) {
  ++made["pread"];
  made["bytes"] += size;
  return __real_pread(descriptor, into, size, offset);
}
}
// NOLINTEND(*-reserved-identifier, *-global-variables, cert-dcl50-cpp, *-identifier-naming)

namespace marigold {
namespace {

using test::at, test::recordLine, testing::ElementsAre;

TEST(CodexSyscalls, AreFew) {
  const test::CodexHome home;
  for (int i = 0; i < 100; ++i) {
    home.write("2027/d" + std::to_string(i % 5) + "/rollout-" + std::to_string(i) + ".jsonl",
               recordLine(i, i), i);
  }
  CodexProvider provider = home.provider();
  const auto callsOfFetch = [&] {
    made = {};
    EXPECT_EQ(provider.fetch(at(1000)).headlinePercent(), 99);
    return std::vector{made["openat"], made["fstatat"], made["open"], made["pread"], made["bytes"]};
  };
  const std::size_t line = recordLine(99, 99).size();
  EXPECT_THAT(callsOfFetch(), ElementsAre(9, 100, 1, 1, line));
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 100, 0, 0, 0)) << "nothing changed";
  home.write("rollout-long.jsonl", std::string(3UL << 20, 'x'), 100);
  EXPECT_THAT(callsOfFetch(), ElementsAre(10, 101, 2, 3, codexTailWindow + line));
  for (int i = 0; i < 50; ++i) {
    home.write("rollout-none-" + std::to_string(i) + ".jsonl", "{}\n", 101);
  }
  const auto none = callsOfFetch();
  EXPECT_THAT(none, ElementsAre(46, 151, 40, 40, 40 * 3)) << "at most 40 files";
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 151, 0, 0, 0)) << "which hold nothing";
  made = {};
  (void)provider.rescan(at(1000));
  EXPECT_EQ(made["open"], 40) << "a rescan trusts nothing";
}

TEST(CodexSyscalls, TheTreeMayChangeWhileItIsWalked) {
  const test::CodexHome home;
  home.write("rollout-gone.jsonl", recordLine(1, 1), 1);
  home.write("rollout-linked.jsonl", recordLine(2, 2), 2);
  home.write("linked/rollout-b.jsonl", recordLine(3, 3), 3);
  home.write("rollout-kept.jsonl", recordLine(5, 0), 0);
  interfere = [&](const std::string& name) {
    const std::string path = home.sessions + "/" + name;
    const std::string elsewhere = home.home.path() + "/" + name;
    if (name == "rollout-linked.jsonl" || name == "linked") {
      std::filesystem::rename(path, elsewhere);
      std::filesystem::create_symlink(elsewhere, path);
    } else if (name != "rollout-kept.jsonl") {
      std::filesystem::remove(path);
    }
  };
  EXPECT_THAT(home.recentRolloutFiles(), ElementsAre("rollout-kept.jsonl"));
  home.write("d/rollout-d.jsonl", recordLine(6, 6), 6);
  interfere = [&](const std::string& name) {
    if (name == "." && !std::filesystem::is_symlink(home.sessions + "/d")) {  // after the walk
      std::filesystem::rename(home.sessions + "/d", home.home.path() + "/d");
      std::filesystem::create_symlink(home.home.path() + "/d", home.sessions + "/d");
    }
  };
  EXPECT_EQ(home.provider().fetch(at(9)).headlinePercent(), 5);
  interfere = [](auto&) {};
}

TEST(GrokSyscalls, DependOnWhatIsNew) {
  constexpr std::size_t stamp = GrokLogScan::stampBytes;
  constexpr std::size_t chunk = GrokLogScan::chunkBytes;
  const std::string kib = std::string(1023, 'x') + "\n";
  const test::GrokHome home;
  home.append("");
  std::filesystem::resize_file(home.log, 1UL << 30U);  // sparse
  home.append("\n" + test::billingLine("15", 10) + kib);
  GrokProvider provider = home.provider();
  const auto callsAt = [&](double now) {
    made = {};
    EXPECT_TRUE(provider.fetch(at(now)).isUsable());
    return std::vector{made["open"], made["pread"], made["bytes"]};
  };
  EXPECT_THAT(callsAt(20), ElementsAre(1, 2, chunk + stamp));
  EXPECT_THAT(callsAt(30), ElementsAre(1, 0, 0)) << "nothing changed";
  EXPECT_THAT(callsAt(139.9), ElementsAre(1, 0, 0));
  EXPECT_THAT(callsAt(140), ElementsAre(1, 2, chunk + stamp)) << "the memo is too old";
  EXPECT_THAT(callsAt(130), ElementsAre(1, 2, chunk + stamp)) << "the clock went backwards";
  home.append(kib);
  EXPECT_THAT(callsAt(200), ElementsAre(1, 3, 1024 + 2 * stamp)) << "a KiB is new";
  home.append("half");
  EXPECT_THAT(callsAt(200), ElementsAre(1, 3, 4 + 2 * stamp));
  home.append(" a line\n");
  EXPECT_THAT(callsAt(200), ElementsAre(1, 3, 12 + 2 * stamp)) << "its begin is read again";
  const std::string billing = test::billingLine("16", 150);
  home.append(billing);
  EXPECT_THAT(callsAt(200), ElementsAre(1, 3, billing.size() + 2 * stamp));
  std::filesystem::resize_file(home.log, 2UL << 30U);
  home.append("\n");
  EXPECT_THAT(callsAt(200), ElementsAre(1, 9, GrokLogScan::searchBudgetBytes + stamp));
}

}  // namespace
}  // namespace marigold
