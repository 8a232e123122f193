#include "linux/system/LinuxApplicationControl.h"

#include <chrono>
#include <csignal>
#include <cstdlib>

#include <QtCore/QCoreApplication>
#include <sys/time.h>
#include <unistd.h>

#include "linux/popover/AboutDialog.h"

namespace marigold {

LinuxApplicationControl::LinuxApplicationControl() = default;

LinuxApplicationControl::~LinuxApplicationControl() = default;

void LinuxApplicationControl::showAbout(const AboutPanel& about) {
  about_ = makeAboutDialog(about);
  about_->show();
  about_->raise();
  about_->activateWindow();
}

void LinuxApplicationControl::quit() {
  // Not quit(), which asks every window first, and one may refuse.
  QCoreApplication::exit(EXIT_SUCCESS);
}

void LinuxApplicationControl::leaveRegardless(Seconds after) {
  (void)std::signal(SIGALRM, [](int) { ::_exit(EXIT_SUCCESS); });
  constexpr std::int64_t perSecond = 1'000'000;
  const auto microseconds = std::chrono::round<std::chrono::microseconds>(after).count();
  const itimerval then{
      .it_interval = {},
      .it_value = {.tv_sec = microseconds / perSecond, .tv_usec = microseconds % perSecond}};
  (void)::setitimer(ITIMER_REAL, &then, nullptr);
}

}  // namespace marigold
