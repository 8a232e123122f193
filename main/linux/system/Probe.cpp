#include "linux/system/Probe.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <QtDBus/QDBusConnection>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/BoundedProcessRun.h"

namespace marigold {

namespace {

// Not in --help: nobody else needs it.
constexpr std::string_view busFlag = "--open-bus";

}  // namespace

Trial::Trial(const std::function<bool()>& works) : end_(-1) {
  std::array<int, 2> pipe{-1, -1};
  if (::pipe2(pipe.data(), O_CLOEXEC) < 0) {
    return;
  }
  end_ = OwnedDescriptor(pipe[0]);
  const OwnedDescriptor copysOwn(pipe[1]);
  copy_ = ::fork();
  if (copy_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nowhere < 0) {
      ::_exit(EXIT_FAILURE);
    }
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      ::dup2(nowhere, stream);
    }
    ::dup2(copysOwn.get(), STDERR_FILENO + 1);
    ::close_range(STDERR_FILENO + 2, ~0U, 0);        // it must not keep open what is this process's
    ::_exit(works() ? EXIT_SUCCESS : EXIT_FAILURE);  // without the wait that an orderly end may be
  }
}

Trial::~Trial() {
  (void)answer(Seconds{0});
}

ProbeAnswer Trial::answer(Seconds patience) {
  if (copy_ < 0) {
    return ProbeAnswer::fails;
  }
  pollfd ended{.fd = end_.get(), .events = POLLIN, .revents = 0};  // its pipe breaks
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(patience);
  const bool inTime = ::poll(&ended, 1, static_cast<int>(wait.count())) > 0;
  ::kill(copy_, SIGKILL);
  int status = EXIT_FAILURE;
  ::waitpid(std::exchange(copy_, -1), &status, 0);
  if (!inTime) {
    return ProbeAnswer::silent;
  }
  return status == EXIT_SUCCESS ? ProbeAnswer::works : ProbeAnswer::fails;
}

bool opensBus(const std::string& address) {
  return QDBusConnection::connectToBus(QString::fromStdString(address), QStringLiteral("probe"))
      .isConnected();
}

ProbeAnswer probeBus(const std::string& program, const std::string& address, Seconds patience,
                     const std::atomic<bool>* stop) {
  const SecretCommandResult result =
      BoundedProcessRun::execute({.executable = program,
                                  .arguments = {std::string(busFlag), address},
                                  .environment = {},
                                  .timeout = patience,
                                  .grace = Seconds{0.1},
                                  .stop = stop});
  if (result.timedOut) {
    return ProbeAnswer::silent;
  }
  return result.status == EXIT_SUCCESS && !result.launchFailed ? ProbeAnswer::works
                                                               : ProbeAnswer::fails;
}

void answerBusProbe(std::span<const std::string> arguments) {
  if (arguments.size() == 2 && arguments.front() == busFlag) {
    ::alarm(60);  // should whoever asked be gone before it could end us
    ::_exit(opensBus(arguments.back()) ? EXIT_SUCCESS : EXIT_FAILURE);
  }
}

}  // namespace marigold
