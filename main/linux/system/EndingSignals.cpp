#include "linux/system/EndingSignals.h"

#include <csignal>
#include <utility>

#include <sys/signalfd.h>
#include <unistd.h>

namespace marigold {

namespace {

sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&signals, signal);
  }
  return signals;
}

}  // namespace

void EndingSignals::block() {
  const sigset_t signals = endingSignals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

EndingSignals::EndingSignals(LinuxEventLoop& loop, Work onSignal) : loop_(loop), signals_(-1) {
  const sigset_t signals = endingSignals();
  signals_ = OwnedDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  loop_.watch(signals_.get(), [this, onSignal = std::move(onSignal)] {
    signalfd_siginfo received = {};
    if (::read(signals_.get(), &received, sizeof received) > 0) {
      onSignal();
    }
  });
}

EndingSignals::~EndingSignals() {
  loop_.unwatch(signals_.get());
}

}  // namespace marigold
