#include "base/ProcessStart.h"

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

#include "base/CoreDumps.h"

namespace marigold {

void startProcess() noexcept {
  int opened = ::open("/dev/null", O_RDWR | O_CLOEXEC);  // takes the lowest number that is free
  while (opened >= 0 && opened <= STDERR_FILENO) {
    (void)::fcntl(opened, F_SETFD, 0);  // for children too
    opened = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  }
  ::close(opened);

  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction inherited = {};
    if (::sigaction(signal, nullptr, &inherited) == 0 && inherited.sa_handler == SIG_IGN) {
      inherited.sa_handler = SIG_DFL;
      (void)::sigaction(signal, &inherited, nullptr);
    }
  }
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
  sigset_t none;
  sigemptyset(&none);
  (void)::pthread_sigmask(SIG_SETMASK, &none, nullptr);

  forbidCoreDumps();
}

}  // namespace marigold
