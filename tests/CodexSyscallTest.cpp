// Counts what a read of the Codex tool's files asks of the system. Linked with the calls below
// wrapped, hence a program of its own.

#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/CodexHome.h"

namespace {

struct Calls {
  int opens = 0;  // of rollout files
  int directories = 0;
  int stats = 0;
  int reads = 0;
  std::size_t bytes = 0;

  bool operator==(const Calls&) const = default;
};
// NOLINTBEGIN(*-avoid-non-const-global-variables): the wrapped calls have no other way to know.
Calls calls;

// Runs before a rollout file is looked at or a directory is entered; an errno that it returns fails
// the call.
std::function<int(std::string_view)> interfere;
// NOLINTEND(*-avoid-non-const-global-variables)

int failed(std::string_view name) {
  errno = interfere ? interfere(name) : 0;
  return errno;
}

bool isRollout(std::string_view path) {
  return path.ends_with(".jsonl");
}

}  // namespace

// The names are the linker's.
// NOLINTBEGIN(*-reserved-identifier, cert-dcl*, readability-identifier-naming)
extern "C" {
// Where the mode is not passed, nobody looks at it.
int __real_open(const char* path, int flags, mode_t mode);
int __real_openat(int directory, const char* path, int flags, mode_t mode);
int __real_fstatat(int directory, const char* path, struct stat* status, int flags);
ssize_t __real_pread(int descriptor, void* into, size_t size, off_t offset);

int __wrap_open(const char* path, int flags, mode_t mode) {
  calls.opens += isRollout(path) ? 1 : 0;
  return __real_open(path, flags, mode);
}
int __wrap_openat(int directory, const char* path, int flags, mode_t mode) {
  ++calls.directories;
  return failed(path) != 0 ? -1 : __real_openat(directory, path, flags, mode);
}
int __wrap_fstatat(int directory, const char* path, struct stat* status, int flags) {
  ++calls.stats;
  return failed(path) != 0 ? -1 : __real_fstatat(directory, path, status, flags);
}
ssize_t __wrap_pread(int descriptor, void* into, size_t size, off_t offset) {
  ++calls.reads;
  calls.bytes += size;
  return __real_pread(descriptor, into, size, offset);
}
}
// NOLINTEND(*-reserved-identifier, cert-dcl*, readability-identifier-naming)

namespace marigold {
namespace {

namespace fs = std::filesystem;

struct CodexSyscalls : testing::Test {
  test::CodexHome home;
  CodexProvider provider = home.provider();
  Date now = test::codexEpoch + Seconds{1000};

  void TearDown() override { interfere = nullptr; }
};

// What `work` calls.
template <class Work>
Calls counting(const Work& work) {
  calls = {};
  work();
  return calls;
}

TEST_F(CodexSyscalls, AnUnchangedRefreshOpensNoFile) {
  for (int i = 0; i < 100; ++i) {
    home.write("2027/d" + std::to_string(i % 5) + "/rollout-" + std::to_string(i) + ".jsonl",
               test::recordLine(i, i), i);
    home.write("2027/other-" + std::to_string(i), "", i);
  }
  const Calls first = counting([&] { ASSERT_EQ(provider.fetch(now).headlinePercent(), 99); });
  EXPECT_EQ(first, (Calls{.opens = 1,
                          .directories = 6,
                          .stats = 100,
                          .reads = 1,
                          .bytes = test::recordLine(99, 99).size()}));
  const Calls second = counting([&] { ASSERT_TRUE(provider.fetch(now).isUsable()); });
  EXPECT_EQ(second, (Calls{.directories = 6, .stats = 100}));
}

TEST_F(CodexSyscalls, AFileIsOpenedOnceAndItsTailReadOnce) {
  const std::string early(3UL << 20, 'x');
  const auto file = home.write("rollout-a.jsonl", early + "\n" + test::recordLine(5, 0), 0);
  Calls read = counting([&] { ASSERT_TRUE(provider.fetch(now).isUsable()); });
  EXPECT_EQ(read.opens, 1);
  EXPECT_EQ(read.reads, 1);
  home.write("rollout-a.jsonl", test::recordLine(5, 0) + early, 1);
  read = counting([&] { ASSERT_FALSE(lastRateLimits(file, now)); });
  EXPECT_EQ(read.opens, 1);
  EXPECT_EQ(read.bytes, codexTailWindow);
}

TEST_F(CodexSyscalls, AtMostFortyFilesAreOpened) {
  for (int i = 0; i < 50; ++i) {
    home.write("rollout-" + std::to_string(i) + ".jsonl", "{}\n", i);
  }
  EXPECT_EQ(counting([&] { ASSERT_FALSE(provider.rescan(now).isUsable()); }).opens, 40);
}

TEST_F(CodexSyscalls, TheTreeMayChangeWhileItIsWalked) {
  const std::string gone = home.write("a/rollout-gone.jsonl", test::recordLine(1, 1), 1);
  home.write("a/rollout-linked.jsonl", test::recordLine(2, 2), 2);
  home.write("b/rollout-moved.jsonl", test::recordLine(3, 3), 3);
  home.write("c/rollout-shut.jsonl", test::recordLine(4, 4), 4);
  home.write("d/rollout-kept.jsonl", test::recordLine(5, 0), 0);
  const std::string sessions = home.sessions();
  interfere = [&](std::string_view name) {
    if (name == "rollout-gone.jsonl") {
      fs::remove(gone);
    } else if (name == "rollout-linked.jsonl") {
      fs::remove(sessions + "/a/rollout-linked.jsonl");
      fs::create_symlink(sessions + "/d/rollout-kept.jsonl", sessions + "/a/rollout-linked.jsonl");
    } else if (name == "b") {  // becomes a link to itself, elsewhere
      fs::rename(sessions + "/b", home.path() + "/b");
      fs::create_directory_symlink(home.path() + "/b", sessions + "/b");
    }
    return name == "c" ? EACCES : 0;
  };
  EXPECT_EQ(provider.fetch(now).headlinePercent(), 5);
  EXPECT_EQ(provider.lastSource(), sessions + "/d/rollout-kept.jsonl");
}

}  // namespace
}  // namespace marigold
