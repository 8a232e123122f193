// Counts what a read of the Codex tool's files asks of the system; the linker wraps the calls.

#include <functional>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "support/CodexHome.h"

// NOLINTBEGIN(*-reserved-identifier, *-global-variables, cert-dcl50-cpp, *-identifier-naming)
namespace {

std::map<std::string_view, std::size_t> made;  // calls by name, and the bytes asked for
std::function<void(const std::string&)> interfere = [](auto&) {};  // before openat and fstatat

}  // namespace

extern "C" {  // the names are the linker's
int __real_open(const char* path, int flags, ...);
int __real_openat(int directory, const char* path, int flags, ...);
int __real_fstatat(int directory, const char* path, struct stat* status, int flags);
ssize_t __real_pread(int descriptor, void* into, size_t size, off_t offset);

int __wrap_open(const char* path, int flags, ...) {
  made["open"] += std::size_t{std::string_view(path).ends_with(".jsonl")};
  return __real_open(path, flags, 0600);  // the mode is of a new file: the cache
}
int __wrap_openat(int directory, const char* path, int flags, ...) {
  ++made["openat"];
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

using test::at, test::recordLine, testing::ElementsAre, testing::Field;

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
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 100, 1, 1, line));
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 100, 0, 0, 0)) << "nothing changed";
  home.write("rollout-long.jsonl", std::string(3UL << 20, 'x'), 100);
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 101, 2, 3, codexTailWindow + line));
  for (int i = 0; i < 50; ++i) {
    home.write("rollout-none-" + std::to_string(i) + ".jsonl", "{}\n", 101);
  }
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 151, 40, 40, 40 * 3)) << "at most 40 files";
}

TEST(CodexSyscalls, TheTreeMayChangeWhileItIsWalked) {
  const test::CodexHome home;
  home.write("rollout-gone.jsonl", recordLine(1, 1), 1);
  home.write("rollout-linked.jsonl", recordLine(2, 2), 2);
  home.write("linked/rollout-b.jsonl", recordLine(3, 3), 3);
  const std::string kept = home.write("rollout-kept.jsonl", recordLine(5, 0), 0);
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
  EXPECT_THAT(home.provider().recentRolloutFiles(9), ElementsAre(Field(&RolloutFile::path, kept)));
  interfere = [](auto&) {};
}

}  // namespace
}  // namespace marigold
