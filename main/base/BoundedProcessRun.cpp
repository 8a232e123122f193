#include "base/BoundedProcessRun.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <span>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/OwnedDescriptor.h"

namespace marigold {

namespace {

// Real time: a child that blocks in the kernel heeds no other.
using Clock = std::chrono::steady_clock;

// What is read at once; a pipe holds no more.
constexpr std::size_t chunkSize = 65536;

// Where the system can start a child without the descriptors that were not given to it by name.
#ifdef POSIX_SPAWN_CLOEXEC_DEFAULT
constexpr int onlyNamedDescriptors = POSIX_SPAWN_CLOEXEC_DEFAULT;
#else
constexpr int onlyNamedDescriptors = 0;
#endif

// Elsewhere it is told to close the others.
template <class Actions>
void closeFrom(Actions* actions, int first) {
  if constexpr (requires { posix_spawn_file_actions_addclosefrom_np(actions, first); }) {
    posix_spawn_file_actions_addclosefrom_np(actions, first);
  }
}

template <class Ends>
int openPipe(Ends* ends) {
  if constexpr (requires { pipe2(ends, O_CLOEXEC); }) {
    return pipe2(ends, O_CLOEXEC);
  } else {
    return ::pipe(ends);
  }
}

struct Pipe {
  OwnedDescriptor readEnd{-1};
  OwnedDescriptor writeEnd{-1};

  [[nodiscard]] static std::optional<Pipe> open() {
    std::array<int, 2> ends{};
    if (openPipe(ends.data()) != 0) {
      return std::nullopt;
    }
    Pipe pipe{.readEnd = OwnedDescriptor(ends[0]), .writeEnd = OwnedDescriptor(ends[1])};
    for (OwnedDescriptor* end : {&pipe.readEnd, &pipe.writeEnd}) {
      // Above the standard ones, over which the child's ends are laid. This process may lack those.
      *end = OwnedDescriptor(::fcntl(end->get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
      if (!end->isOpen()) {
        return std::nullopt;
      }
    }
    return pipe;
  }
};

// Takes in one stream of the child. One thread reads and waits, so there is nothing to lock.
class StreamSink {
 public:
  StreamSink(std::size_t cap, bool keepBytes, bool stopsAtCap)
      : cap_(cap),
        keepBytes_(keepBytes),
        stopsAtCap_(stopsAtCap),
        buffer_(Secret::withRoom(keepBytes ? cap : 0)) {}

  // An empty chunk is the end of the stream.
  void accept(std::string_view chunk) {
    if (done_) {
      return;
    }
    done_ = chunk.empty();
    count_ += chunk.size();
    if (count_ > cap_) {
      over_ = true;
      done_ = done_ || stopsAtCap_;
    } else if (keepBytes_) {
      std::ranges::copy(chunk, buffer_.room().begin());
      buffer_.grow(chunk.size());
    }
  }

  [[nodiscard]] bool isOver() const { return over_; }
  [[nodiscard]] bool isDone() const { return done_; }
  [[nodiscard]] std::size_t count() const { return count_; }
  [[nodiscard]] Secret takeBytes() { return std::move(buffer_); }

 private:
  std::size_t cap_;
  bool keepBytes_;
  bool stopsAtCap_;
  Secret buffer_;
  std::size_t count_ = 0;
  bool over_ = false;
  bool done_ = false;
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

// The child's process, or nothing when it could not be started. `input` is -1 for the null device.
std::optional<pid_t> launch(const BoundedProcessRun::Command& command, int input, int output,
                            int error) {
  posix_spawn_file_actions_t actions{};
  ::posix_spawn_file_actions_init(&actions);
  if (input < 0) {
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  } else {
    ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  }
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, error, STDERR_FILENO);
  int firstUnwanted = STDERR_FILENO + 1;
  if (command.handedDown >= 0) {
    ::posix_spawn_file_actions_adddup2(&actions, command.handedDown, firstUnwanted++);
  }
  closeFrom(&actions, firstUnwanted);

  posix_spawnattr_t attributes{};
  ::posix_spawnattr_init(&attributes);
  sigset_t signals{};
  sigemptyset(&signals);
  ::posix_spawnattr_setsigmask(&attributes, &signals);
  sigfillset(&signals);
  ::posix_spawnattr_setsigdefault(&attributes, &signals);
  ::posix_spawnattr_setflags(
      &attributes,
      static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | onlyNamedDescriptors));

  std::vector<std::string> words{command.name.empty() ? command.executable : command.name};
  words.insert(words.end(), command.arguments.begin(), command.arguments.end());
  std::vector<std::string> settings;
  settings.reserve(command.environment.size());
  for (const auto& [name, value] : command.environment) {
    settings.emplace_back(name).append("=").append(value);
  }
  pid_t process = -1;
  const int failure = ::posix_spawn(&process, command.executable.c_str(), &actions, &attributes,
                                    pointers(words).data(), pointers(settings).data());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  return failure == 0 ? std::optional(process) : std::nullopt;
}

// Where children are not waited for, as a process may have been started to have it, the system
// forgets how each ended. Left to its default, the signal is ignored as well.
void keepChildrenUntilWaitedFor() {
  struct sigaction manner = {};
  ::sigaction(SIGCHLD, nullptr, &manner);
  if (manner.sa_handler == SIG_IGN || (manner.sa_flags & SA_NOCLDWAIT) != 0) {
    (void)std::signal(SIGCHLD, SIG_DFL);
  }
}

std::int32_t exitStatus(int raw) {
  return WIFSIGNALED(raw) ? 128 + WTERMSIG(raw) : WEXITSTATUS(raw);
}

// A started child with our ends of its streams.
class Run {
 public:
  Run(pid_t process, OwnedDescriptor input, OwnedDescriptor output, OwnedDescriptor error,
      BoundedProcessRun::Command command)
      : process_(process),
        input_(std::move(input)),
        output_(std::move(output)),
        error_(std::move(error)),
        command_(std::move(command)),
        inputText_(std::move(command_.input).value_or(Secret())),
        outputSink_(command_.stdoutCap, true, true),
        errorSink_(command_.stderrCap, false, false) {
    if (input_.isOpen()) {
      ::fcntl(input_.get(), F_SETFL, O_NONBLOCK);
    }
  }

  [[nodiscard]] SecretCommandResult finish() {
    SecretCommandResult result;
    pumpUntil(command_.timeout,
              [this] { return hasEnded() || outputSink_.isOver() || isStopped(); });
    result.timedOut = !hasEnded() && !outputSink_.isOver();
    if (!hasEnded()) {
      ::kill(process_, SIGTERM);
      pumpUntil(command_.grace, [this] { return hasEnded() || isStopped(); });
    }
    if (!hasEnded()) {
      ::kill(process_, SIGKILL);
      pumpUntil(command_.grace, [this] { return hasEnded(); });
    }
    pumpUntil(command_.grace,
              [this] { return (outputSink_.isDone() && errorSink_.isDone()) || isStopped(); });
    result.status = status_.value_or(-1);
    result.stdoutBytes = outputSink_.takeBytes();
    result.stderrByteCount = errorSink_.count();
    result.overflowed = outputSink_.isOver();
    return result;
  }

 private:
  [[nodiscard]] bool isStopped() const { return command_.stop != nullptr && *command_.stop; }

  // Until then the process's number cannot be another's.
  bool hasEnded() {
    int raw = 0;
    const pid_t waitedFor = status_ ? 0 : ::waitpid(process_, &raw, WNOHANG);
    if (waitedFor != 0) {
      status_ = waitedFor == process_ ? exitStatus(raw) : -1;
    }
    return status_.has_value();
  }

  template <class Condition>
  void pumpUntil(Seconds limit, const Condition& holds) {
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
    while (!holds()) {
      const Seconds left = deadline - Clock::now();
      if (left <= Seconds{0}) {
        return;
      }
      pump(std::min(left, BoundedProcessRun::exitPollInterval));
    }
  }

  // Moves what the streams are ready for, or waits so long.
  void pump(Seconds slice) {
    std::array<pollfd, 3> streams{
        {{.fd = outputSink_.isDone() ? -1 : output_.get(), .events = POLLIN, .revents = 0},
         {.fd = errorSink_.isDone() ? -1 : error_.get(), .events = POLLIN, .revents = 0},
         {.fd = input_.get(), .events = POLLOUT, .revents = 0}}};
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(slice);
    if (::poll(streams.data(), streams.size(), static_cast<int>(milliseconds.count())) <= 0) {
      return;
    }
    if (streams[0].revents != 0) {
      takeIn(output_.get(), outputSink_);
    }
    if (streams[1].revents != 0) {
      takeIn(error_.get(), errorSink_);
    }
    if (streams[2].revents != 0) {
      giveInput();
    }
  }

  void takeIn(int descriptor, StreamSink& sink) {
    const std::span<char> room = chunk_.room();
    const ssize_t count = ::read(descriptor, room.data(), room.size());
    if (count >= 0 || errno != EINTR) {
      sink.accept({room.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))});
    }
  }

  void giveInput() {
    const std::string_view rest = inputText_.expose().substr(inputGiven_);
    const ssize_t count = ::write(input_.get(), rest.data(), rest.size());
    inputGiven_ += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    if (inputGiven_ == inputText_.size() || (count < 0 && errno != EINTR && errno != EAGAIN)) {
      input_.close();
      inputText_ = Secret();
    }
  }

  pid_t process_;
  OwnedDescriptor input_;
  OwnedDescriptor output_;
  OwnedDescriptor error_;
  BoundedProcessRun::Command command_;
  Secret inputText_;
  StreamSink outputSink_;
  StreamSink errorSink_;
  Secret chunk_ = Secret::withRoom(chunkSize);
  std::size_t inputGiven_ = 0;
  std::optional<std::int32_t> status_;  // once it has ended
};

}  // namespace

std::string SecretCommandResult::description() const {
  const auto word = [](bool value) { return value ? "true" : "false"; };
  return "SecretCommandResult(status: " + std::to_string(status) +
         ", stdoutBytes: " + std::to_string(stdoutBytes.size()) +
         " <redacted>, stderrBytes: " + std::to_string(stderrByteCount) +
         ", timedOut: " + word(timedOut) + ", overflowed: " + word(overflowed) +
         ", launchFailed: " + word(launchFailed) + ")";
}

SecretCommandResult BoundedProcessRun::execute(Command command) {
  if (command.stop != nullptr && *command.stop) {
    return {.status = -1, .timedOut = true};
  }
  // Another would be looked for where nobody knows.
  if (!command.executable.starts_with('/')) {
    return {.status = -1, .launchFailed = true};
  }
  keepChildrenUntilWaitedFor();
  auto output = Pipe::open();
  auto error = Pipe::open();
  auto input = command.input ? Pipe::open() : Pipe{};
  const auto process =
      output && error && input
          ? launch(command, input->readEnd.get(), output->writeEnd.get(), error->writeEnd.get())
          : std::nullopt;
  if (!process) {
    return {.status = -1, .launchFailed = true};
  }
  // Else a stream would not end with the child.
  input->readEnd.close();
  output->writeEnd.close();
  error->writeEnd.close();
  return Run(*process, std::move(input->writeEnd), std::move(output->readEnd),
             std::move(error->readEnd), std::move(command))
      .finish();
}

}  // namespace marigold
