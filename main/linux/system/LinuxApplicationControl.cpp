#include "linux/system/LinuxApplicationControl.h"

#include <cstdlib>

#include <QtCore/QCoreApplication>

#include "base/ProcessEnd.h"
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
  leaveAfter(after);
}

}  // namespace marigold
