#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BoundedProcessRun.h"

namespace marigold {
namespace {

using Command = BoundedProcessRun::Command;

// A command for the shell whose children live for seconds unless they are ended.
Command shell(std::string script) {
  return {.executable = "/bin/sh",
          .arguments = {"-c", std::move(script)},
          .environment = {{"PATH", "/usr/bin:/bin"}},
          .stdoutCap = 1000,
          .stderrCap = 100,
          .timeout = Seconds{5},
          .grace = Seconds{0.1}};
}

std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

// Runs `command`, which takes less than two seconds and leaves neither a descriptor nor a child.
SecretCommandResult execute(Command command) {
  (void)std::signal(SIGPIPE, SIG_IGN);  // as the program does
  const auto before = openDescriptors();
  const auto start = std::chrono::steady_clock::now();
  auto result = BoundedProcessRun::execute(std::move(command));
  EXPECT_LT(std::chrono::steady_clock::now() - start, Seconds{2});
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  return result;
}

TEST(BoundedProcessRun, EndsWithWhateverChild) {
  // The status, the bytes on standard output and on standard error, whether it was late.
  using Summary = std::tuple<int, std::size_t, std::size_t, bool>;
  for (const auto& [script, timeout, summary] :
       {std::tuple("printf result; printf more >&2; exit 44", 5.0, Summary(44, 6, 4, false)),
        {"kill -9 $$", 5.0, {137, 0, 0, false}},
        {"exec head -c 1000 /dev/zero", 5.0, {0, 1000, 0, false}},
        {"exec head -c 200000 /dev/zero >&2", 5.0, {0, 0, 200000, false}},
        {"sleep 3 & printf x", 5.0, {0, 1, 0, false}},  // and the pipes stay open
        {"exec sleep 5", 0.3, {143, 0, 0, true}},
        {"trap '' TERM; printf x; exec sleep 5", 0.3, {137, 1, 0, true}},
        {"exec >&- 2>&-; exec sleep 5", 0.3, {143, 0, 0, true}}}) {
    Command command = shell(script);
    command.timeout = Seconds{timeout};
    const SecretCommandResult result = execute(std::move(command));
    EXPECT_EQ(
        Summary(result.status, result.stdoutBytes.size(), result.stderrByteCount, result.timedOut),
        summary)
        << script;
  }
  EXPECT_EQ(execute(shell("printf secret; printf more >&2; exit 44")).description(),
            "SecretCommandResult(status: 44, stdoutBytes: 6 <redacted>, stderrBytes: 4, timedOut: "
            "false, overflowed: false, launchFailed: false)");
}

TEST(BoundedProcessRun, AFloodEndsARunOrIsDropped) {
  EXPECT_TRUE(execute(shell("head -c 1001 /dev/zero")).overflowed);
  const SecretCommandResult over = execute(shell("exec yes"));
  EXPECT_TRUE(over.overflowed && !over.timedOut);
  EXPECT_LE(over.stdoutBytes.size(), 1000U);
  EXPECT_EQ(execute(shell("trap '' TERM; exec yes")).status, 128 + SIGKILL);
  Command both = shell("yes >&2 & exec sleep 5");
  both.timeout = Seconds{0.3};
  const SecretCommandResult late = execute(std::move(both));
  EXPECT_TRUE(late.timedOut && !late.overflowed);
  EXPECT_GT(late.stderrByteCount, 100U);
}

TEST(BoundedProcessRun, AChildGetsNothingButWhatItIsGiven) {
  sigset_t usual{};
  sigset_t most{};
  sigfillset(&most);
  ::pthread_sigmask(SIG_SETMASK, &most, &usual);
  const int kept = ::fcntl(STDERR_FILENO, F_DUPFD, 100);
  // The C library itself ignores two signals of its own, 32 and 33, in the child.
  EXPECT_THAT(
      std::string(
          execute(shell("exec grep -E 'Sig(Blk|Ign)' /proc/self/status")).stdoutBytes.expose()),
      testing::MatchesRegex("SigBlk:\t0*\nSigIgn:\t0*(180000000)?\n"));
  // The fourth is the directory.
  EXPECT_EQ(execute(shell("exec ls /proc/self/fd")).stdoutBytes.expose(), "0\n1\n2\n3\n");
  ::close(kept);
  ::pthread_sigmask(SIG_SETMASK, &usual, nullptr);
  Command env{.executable = "/usr/bin/env",
              .environment = {{"A", "1"}, {"B", ""}},
              .stdoutCap = 100,
              .timeout = Seconds{5}};
  EXPECT_EQ(execute(std::move(env)).stdoutBytes.expose(), "A=1\nB=\n");
  EXPECT_EQ(execute(shell("exec readlink /proc/self/fd/0")).stdoutBytes.expose(), "/dev/null\n");
}

TEST(BoundedProcessRun, GivesTheInput) {
  const std::string text(300'000, 'x');
  Command echo = shell("exec cat");
  echo.stdoutCap = text.size();
  echo.input = Secret(text);
  const int standardInput = ::dup(STDIN_FILENO);
  ::close(STDIN_FILENO);  // a pipe of ours takes its place
  EXPECT_EQ(execute(std::move(echo)).stdoutBytes.expose(), text);
  ::dup2(standardInput, STDIN_FILENO);
  ::close(standardInput);
  Command deaf = shell("exec 0<&-; sleep 0.05; exit 3");
  deaf.input = Secret(text);
  EXPECT_EQ(execute(std::move(deaf)).status, 3);
  Command missing{.executable = "/nonexistent", .input = Secret(text)};
  EXPECT_TRUE(execute(std::move(missing)).launchFailed);
}

TEST(BoundedProcessRun, StopsAtOnce) {
  std::atomic<bool> stop = false;
  const auto stubborn = [&stop] {
    Command command = shell("trap '' TERM; sleep 0.5 & exec sleep 5");
    command.grace = Seconds{5};
    command.stop = &stop;
    return command;
  };
  std::thread other([&stop] {
    std::this_thread::sleep_for(Seconds{0.05});
    stop = true;
  });
  const SecretCommandResult result = execute(stubborn());
  other.join();
  EXPECT_TRUE(result.timedOut);
  EXPECT_EQ(result.status, 128 + SIGKILL);
  EXPECT_EQ(execute(stubborn()).status, -1) << "not even started";
}

TEST(BoundedProcessRun, TheSecurityToolSeesTwoVariables) {
  const std::atomic<bool> stop = false;
  SecuritySecretRunner runner({.home = "/u", .environment = {{"PATH", "/x"}}}, stop);
  EXPECT_THAT(
      runner.childEnvironment(),
      testing::ElementsAre(testing::Pair("HOME", "/u"), testing::Pair("PATH", "/usr/bin:/bin")));
  EXPECT_EQ(runner.run({"help"}).launchFailed, ::access(runner.executablePath, X_OK) != 0);
}

}  // namespace
}  // namespace marigold
