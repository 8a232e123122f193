#include <csignal>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "base/AtomicFile.h"
#include "base/BoundedFile.h"
#include "base/BoundedProcessRun.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using Command = BoundedProcessRun::Command;
using test::openDescriptors;

// A command for the shell whose children live for seconds unless they are ended.
Command shell(std::string script, double timeout = 5, std::optional<Secret> input = {}) {
  return {.executable = "/bin/sh",
          .arguments = {"-c", std::move(script)},
          .environment = {{"PATH", "/usr/bin:/bin"}},
          .stdoutCap = 1000,
          .stderrCap = 100,
          .timeout = Seconds{timeout},
          .input = std::move(input),
          .grace = Seconds{0.1}};
}

// Runs `command`, which takes less than two seconds and leaves neither a descriptor nor a child.
SecretCommandResult execute(Command command) {
  (void)std::signal(SIGPIPE, SIG_IGN);  // as the program does
  (void)std::signal(SIGCHLD, SIG_IGN);  // as whoever started it may have done
  const auto before = openDescriptors();
  const auto start = std::chrono::steady_clock::now();
  auto result = BoundedProcessRun::execute(std::move(command));
  EXPECT_LT(std::chrono::steady_clock::now() - start, Seconds{2});
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  return result;
}

TEST(BoundedProcessRun, EndsWithWhateverChild) {
  struct Row {
    const char* script = nullptr;
    const char* told = nullptr;  // status, bytes on standard output and error, late, overflowed
    double timeout = 5;
  };
  for (const auto& [script, told, timeout] :
       {Row{"printf result; printf more >&2; exit 44", "44 6 4 false false"},
        {"kill -9 $$", "137 0 0 false false"},
        {"exec head -c 1000 /dev/zero", "0 1000 0 false false"},
        {"exec head -c 200000 /dev/zero >&2", "0 0 200000 false false"},
        {"sleep 3 & printf x", "0 1 0 false false"},  // and the pipes stay open
        {"exec >&- 2>&-; exec sleep 5", "143 0 0 true false", 0.02},
        {"head -c 1001 /dev/zero; sleep 3", "143 0 0 false true"},
        {"trap '' TERM; head -c 1001 /dev/zero; sleep 3", "137 0 0 false true"}}) {
    const SecretCommandResult result = execute(shell(script, timeout));
    EXPECT_EQ(std::to_string(result.status) + " " + std::to_string(result.stdoutBytes.size()) +
                  " " + std::to_string(result.stderrByteCount) +
                  (result.timedOut ? " true" : " false") + (result.overflowed ? " true" : " false"),
              told)
        << script;
  }
  Command quick = shell(
      "trap 'printf more >&2; exit 44' TERM; head -c 1001 /dev/zero; sleep 3 >&- 2>&- & wait");
  quick.grace = Seconds{5};  // of which it takes what it needs; its streams end with it
  EXPECT_EQ(execute(std::move(quick)).description(),
            "SecretCommandResult(status: 44, stdoutBytes: 0 <redacted>, stderrBytes: 4, timedOut: "
            "false, overflowed: true, launchFailed: false)");
}

TEST(BoundedProcessRun, AChildGetsNothingButWhatItIsGiven) {
  const auto printed = [](Command command) {
    return std::string(execute(std::move(command)).stdoutBytes.expose());
  };
  sigset_t usual{};
  sigset_t most{};
  sigfillset(&most);
  ::pthread_sigmask(SIG_SETMASK, &most, &usual);
  const int kept = ::fcntl(STDERR_FILENO, F_DUPFD, 100);
  // The C library itself ignores two signals of its own, 32 and 33, in the child.
  EXPECT_THAT(printed(shell("exec grep -E 'Sig(Blk|Ign)' /proc/self/status")),
              testing::MatchesRegex("SigBlk:\t0*\nSigIgn:\t0*(180000000)?\n"));
  // The fourth is the directory.
  EXPECT_EQ(printed(shell("readlink /proc/self/fd/0; exec ls /proc/self/fd")),
            "/dev/null\n0\n1\n2\n3\n");
  ::close(kept);
  ::pthread_sigmask(SIG_SETMASK, &usual, nullptr);
  Command env = shell("");
  env.executable = "/usr/bin/env";
  env.arguments.clear();
  env.environment = {{"A", "1"}, {"B", ""}};
  EXPECT_EQ(printed(std::move(env)), "A=1\nB=\n");

  const std::string text(300'000, 'x');
  Command echo = shell("exec cat", 5, Secret(text));
  echo.stdoutCap = text.size();
  const int standardInput = ::dup(STDIN_FILENO);
  ::close(STDIN_FILENO);  // a pipe of ours takes its place
  EXPECT_EQ(printed(std::move(echo)), text);
  ::dup2(standardInput, STDIN_FILENO);
  ::close(standardInput);
  EXPECT_EQ(execute(shell("exec 0<&-; sleep 0.05; exit 3", 5, Secret(text))).status, 3);
  const auto before = fs::current_path();
  fs::current_path("/");
  for (const char* path : {"/nonexistent", "bin/sh", ""}) {
    Command command = shell("", 5, Secret(text));
    command.executable = path;
    EXPECT_TRUE(execute(std::move(command)).launchFailed) << path;
  }
  fs::current_path(before);
}

TEST(BoundedProcessRun, StopsAtOnce) {
  const test::TemporaryDirectory directory;
  const std::string ready = directory.path() + "/ready";
  ASSERT_EQ(::mkfifo(ready.c_str(), S_IRUSR | S_IWUSR), 0);
  std::atomic<bool> stop = false;
  const auto stubborn = [&] {
    Command command = shell("trap '' TERM; : >" + ready + "; sleep 0.5 & exec sleep 5");
    command.grace = Seconds{5};
    command.stop = &stop;
    return command;
  };
  std::thread other([&] {
    std::ifstream(ready).get();  // until the child has opened its end
    stop = true;
  });
  const SecretCommandResult result = execute(stubborn());
  other.join();
  EXPECT_TRUE(result.timedOut);
  EXPECT_EQ(result.status, 128 + SIGKILL);
  EXPECT_EQ(execute(stubborn()).status, -1) << "not even started";
}

class FilesTest : public testing::Test {
 protected:
  std::string at(const std::string& name) { return directory.path() + "/" + name; }

  test::TemporaryDirectory directory;
  std::string file = directory.write("file", "content");
};

TEST_F(FilesTest, OnlyRegularFilesAreReadAndNotBeyondTheirBound) {
  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
  fs::create_symlink(file, at("link"));
  const auto descriptors = openDescriptors();
  using enum FileFailure;
  for (const auto& [path, failure] : {std::pair(at("fifo"), notRegular),
                                      {at("link"), notRegular},
                                      {directory.path(), notRegular},
                                      {at("missing"), missing},
                                      {at("file/below"), missing}}) {
    EXPECT_EQ(readWholeFile(path, 100), std::unexpected(failure)) << path;
  }
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_EQ(readWholeFile(file, 7), "content");
  EXPECT_EQ(readWholeFile(file, 6), std::unexpected(FileFailure::tooLarge));
  constexpr std::int64_t fourGiB = std::int64_t{1} << 32;
  fs::resize_file(file, fourGiB + 2);  // sparse
  EXPECT_EQ(readWholeFile(file, 1 << 20), std::unexpected(FileFailure::tooLarge));
  std::string part(5, 'x');
  EXPECT_EQ(BoundedFile::open(file)->readAt(fourGiB, part), 2U) << "fewer bytes at the end only";
}

TEST_F(FilesTest, AReplacementIsWholeOrLeavesTheOldFileAndNothingElse) {
  const auto old = BoundedFile::open(file);
  EXPECT_TRUE(replaceFile(file, "new"));
  std::string part(7, 'x');
  EXPECT_TRUE(old->readAt(0, part) == 7U && part == "content") << "whoever is reading goes on";
  EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);

  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit full{.rlim_cur = 1000, .rlim_max = limit.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ::setrlimit(RLIMIT_FSIZE, &full);
  const auto failed = replaceFile(file, std::string(5000, 'x'));  // 1,000 bytes get through
  ::setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(std::signal(SIGXFSZ, handler), SIG_IGN);
  EXPECT_EQ(failed, std::unexpected(std::make_error_code(std::errc::file_too_large)));
  EXPECT_EQ(readWholeFile(file, 100), "new");
  EXPECT_EQ(test::entriesOf(directory.path()), 1);
}

TEST_F(FilesTest, DirectoriesAreCreatedWithTheirParents) {
  EXPECT_TRUE(createDirectories(at("a/b/c")) && createDirectories(at("a/b/c")));
  EXPECT_EQ(fs::status(at("a")).permissions(), fs::perms::owner_all);
  fs::permissions(at("a/b/c"), fs::perms::owner_read | fs::perms::owner_exec);
  test::asOrdinaryUser(
      [&] { EXPECT_EQ(createDirectories(at("a/b/c/d")).error(), std::errc::permission_denied); });
  EXPECT_EQ(createDirectories(file).error(), std::errc::not_a_directory);
  EXPECT_EQ(createDirectories(file + "/below").error(), std::errc::not_a_directory);
}

}  // namespace
}  // namespace marigold
