#pragma once

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace marigold::test {

/// A real child process with its output read line by line. It is asked to end when this is
/// destroyed, with the children it has by then, or when the test dies.
class ChildProcess {
 public:
  explicit ChildProcess(std::vector<std::string> words,
                        const std::map<std::string, std::string>& environment = {}) {
    std::array<int, 2> out{};
    std::array<int, 2> err{};
    if (::pipe2(out.data(), O_CLOEXEC) != 0 || ::pipe2(err.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    // It must not keep open what the test was started with: a lock, a pipe that somebody reads.
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    words.insert(words.begin(), {"/usr/bin/setpriv", "--pdeathsig", "TERM"});
    std::vector<std::string> settings;
    for (const auto& [name, value] : environment) {
      settings.emplace_back(name).append("=").append(value);
    }
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    if (::posix_spawn(&pid_, words.front().c_str(), &actions, &attributes, pointers(words).data(),
                      pointers(settings).data()) != 0) {
      throw std::runtime_error("cannot start " + words.front());
    }
    group_ = pid_;
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    out_.descriptor = out[0];
    err_.descriptor = err[0];
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess() {
    ::kill(-group_, SIGTERM);
    if (pid_ > 0) {
      finish(5);
    }
    ::kill(-group_, SIGKILL);
    if (pid_ > 0) {
      ::waitpid(pid_, nullptr, 0);
    }
    ::close(out_.descriptor);
    ::close(err_.descriptor);
  }

  /// The next line of standard output that holds `part`; lines before it are skipped. Nothing when
  /// none comes within `seconds` or the output ends.
  std::optional<std::string> outputLine(std::string_view part, double seconds = 20) {
    return line(out_, part, seconds);
  }
  std::optional<std::string> errorLine(std::string_view part, double seconds = 20) {
    return line(err_, part, seconds);
  }
  [[nodiscard]] pid_t id() const { return pid_; }
  /// Sends `signal`.
  void tell(int signal) const { ::kill(pid_, signal); }
  /// The rest of standard output and the exit status: minus the number of the signal that ended it,
  /// -1000 when it did not end in time.
  std::pair<std::string, int> finish(double seconds = 20) {
    std::string rest;
    while (const auto each = line(out_, "", seconds)) {
      rest += *each + "\n";
    }
    int status = 0;
    if (out_.ended && ::waitpid(std::exchange(pid_, -1), &status, 0) > 0) {
      return {rest, WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status)};
    }
    return {rest, -1000};
  }
  /// Asks it to end; its exit status, with what it last said when that is not 0.
  std::string end(int signal = SIGTERM) {
    tell(signal);
    const int status = finish().second;
    std::string text = std::to_string(status);
    while (const auto said = status == 0 ? std::nullopt : errorLine("", 1)) {
      text += "\n" + *said;
    }
    return text;
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

  static std::optional<std::string> line(Stream& stream, std::string_view part, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
      for (auto end = stream.buffered.find('\n'); end != std::string::npos;
           end = stream.buffered.find('\n')) {
        std::string found = stream.buffered.substr(0, end);
        stream.buffered.erase(0, end + 1);
        if (found.find(part) != std::string::npos) {
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

  pid_t pid_ = -1;    // until it was waited for
  pid_t group_ = -1;  // its own
  Stream out_;
  Stream err_;
};

}  // namespace marigold::test
