#pragma once

#include <csignal>
#include <string>
#include <vector>

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

#include "support/ChildProcess.h"

namespace marigold::test {

/// A server that says on its first line how it is reached. Ends with this or with the test.
class DesktopService {
 public:
  explicit DesktopService(std::vector<std::string> command)
      : process_((command.insert(command.begin(), {"/usr/bin/setpriv", "--pdeathsig", "TERM"}),
                  std::move(command)),
                 {}),
        name_(process_.outputLine([](const auto&) { return true; }, 20).value_or("")) {}
  DesktopService(const DesktopService&) = delete;
  DesktopService& operator=(const DesktopService&) = delete;
  DesktopService(DesktopService&&) = delete;
  DesktopService& operator=(DesktopService&&) = delete;
  ~DesktopService() {
    process_.tell(SIGTERM);  // it removes its sockets and locks
    process_.finish(20);
  }
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  ChildProcess process_;
  std::string name_;
};

/// Turns Qt's loop until `wanted` holds; false when it does not within 20 s.
template <typename Wanted>
bool turnUntil(Wanted wanted) {
  QTimer giveUp;
  giveUp.setSingleShot(true);
  giveUp.start(20'000);
  while (!wanted() && giveUp.isActive()) {
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }
  return wanted();
}

}  // namespace marigold::test
