#pragma once

#include <csignal>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "macos/gnustep/User.h"
#include "support/TemporaryDirectory.h"

namespace marigold::test {

/// A program of ours as a process, with what it says in a file.
class Program {
 public:
  /// Its words, the program's file first.
  explicit Program(std::vector<std::string> arguments) {
    (void)std::signal(SIGCHLD, SIG_DFL);  // GNUstep would take the status
    posix_spawn_file_actions_t actions{};
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output_.c_str(),
                                       O_WRONLY | O_CREAT | O_APPEND, 0600);
    ::posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    std::vector<char*> words;
    for (std::string& word : arguments) {
      words.push_back(word.data());
    }
    words.push_back(nullptr);
    EXPECT_EQ(::posix_spawn(&process_, arguments.front().c_str(), &actions, nullptr, words.data(),
                            environ),
              0);
    ::posix_spawn_file_actions_destroy(&actions);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() {
    ::kill(process_, SIGKILL);
    (void)status(0);
  }

  [[nodiscard]] pid_t id() const { return process_; }
  [[nodiscard]] std::string output() const {
    std::ifstream file(output_);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  /// Whether it says `text` before long.
  [[nodiscard]] bool says(const std::string& text) const {
    return eventually([&] { return output().find(text) != std::string::npos; });
  }
  /// How it ended: its exit status, or minus the number of the signal; -1000 if it has not.
  [[nodiscard]] int status(double seconds = 20) {
    (void)eventually(
        [&] {
          int status = 0;
          if (!ended_ && ::waitpid(process_, &status, WNOHANG) == process_) {
            ended_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
          }
          return ended_.has_value();
        },
        seconds);
    return ended_.value_or(-1000);
  }

 private:
  TemporaryDirectory directory_;
  std::string output_ = directory_.path() + "/output";
  pid_t process_ = -1;
  std::optional<int> ended_;
};

}  // namespace marigold::test
