#pragma once

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace marigold::test {

/// A real child process with its output read line by line. Killed and waited for when destroyed.
class ChildProcess {
 public:
  ChildProcess(const std::vector<std::string>& command,
               const std::map<std::string, std::string>& environment) {
    std::array<int, 2> out{};
    std::array<int, 2> err{};
    if (::pipe2(out.data(), O_CLOEXEC) != 0 || ::pipe2(err.data(), O_CLOEXEC) != 0) {
      return;
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    std::vector<std::string> words = command;
    std::vector<std::string> settings;
    for (const auto& [name, value] : environment) {
      settings.emplace_back(name).append("=").append(value);
    }
    if (::posix_spawn(&pid_, words.front().c_str(), &actions, nullptr, pointers(words).data(),
                      pointers(settings).data()) != 0) {
      pid_ = -1;
    }
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    out_.descriptor = out[0];
    err_.descriptor = err[0];
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ChildProcess(ChildProcess&&) = delete;
  ChildProcess& operator=(ChildProcess&&) = delete;
  ~ChildProcess() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    ::close(out_.descriptor);
    ::close(err_.descriptor);
  }

  /// The next line of standard output for which `wanted` holds; lines before it are skipped.
  /// Nothing when none comes within `seconds` or the output ends.
  std::optional<std::string> outputLine(const std::function<bool(const std::string&)>& wanted,
                                        double seconds) {
    return line(out_, wanted, seconds);
  }
  std::optional<std::string> errorLine(const std::function<bool(const std::string&)>& wanted,
                                       double seconds) {
    return line(err_, wanted, seconds);
  }
  /// Sends `signal`.
  void tell(int signal) const { ::kill(pid_, signal); }
  /// The rest of standard output and the exit status: minus the number of the signal that ended it,
  /// -1000 when it did not end in time.
  std::pair<std::string, int> finish(double seconds) {
    std::string rest;
    line(
        out_,
        [&](const std::string& each) {
          rest += each + "\n";
          return false;
        },
        seconds);
    int status = 0;
    if (out_.ended && ::waitpid(std::exchange(pid_, -1), &status, 0) > 0) {
      return {rest, WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status)};
    }
    return {rest, -1000};
  }

 private:
  struct Stream {
    int descriptor = -1;
    std::string buffered;
    bool ended = false;
  };

  static std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
      result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
  }

  static std::optional<std::string> line(Stream& stream,
                                         const std::function<bool(const std::string&)>& wanted,
                                         double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
      for (auto end = stream.buffered.find('\n'); end != std::string::npos;
           end = stream.buffered.find('\n')) {
        std::string found = stream.buffered.substr(0, end);
        stream.buffered.erase(0, end + 1);
        if (wanted(found)) {
          return found;
        }
      }
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      pollfd readable{.fd = stream.descriptor, .events = POLLIN, .revents = 0};
      if (stream.ended || left.count() <= 0 ||
          ::poll(&readable, 1, static_cast<int>(left.count())) <= 0) {
        return std::nullopt;
      }
      std::array<char, 4096> bytes{};
      const ssize_t count = ::read(stream.descriptor, bytes.data(), bytes.size());
      if (count > 0) {
        stream.buffered.append(bytes.data(), static_cast<std::size_t>(count));
      } else if (count == 0 || errno != EINTR) {
        stream.ended = true;
      }
    }
  }

  pid_t pid_ = -1;
  Stream out_;
  Stream err_;
};

}  // namespace marigold::test
