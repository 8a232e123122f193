#include "macos/EndingSignals.h"

#include <csignal>
#include <utility>

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

EndingSignals::EndingSignals(std::function<void()> onSignal)
    : thread_([this, onSignal = std::move(onSignal)] {
        const sigset_t signals = endingSignals();
        int received = 0;
        while (::sigwait(&signals, &received) == 0 && !ended_) {
          onSignal();
        }
      }) {}

EndingSignals::~EndingSignals() {
  ended_ = true;
  ::pthread_kill(thread_.native_handle(), SIGTERM);
  thread_.join();
}

}  // namespace marigold
