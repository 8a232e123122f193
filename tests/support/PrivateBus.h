#pragma once

#include <QtDBus/QDBusConnection>

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

namespace marigold::test {

/// A message bus of the test's own, where any user may speak and no service of the machine's is.
class PrivateBus {
 public:
  explicit PrivateBus(const TemporaryDirectory& home, const std::string& name = "bus")
      : address("unix:path=" + home.path() + "/" + name),
        command_{MARIGOLD_DBUS_DAEMON, "--nofork", "--print-address",
                 "--config-file=" + home.write(name + ".conf", "<busconfig><listen>" + address +
                                                                   R"(</listen>
  <auth>EXTERNAL</auth><policy context="default"><allow user="*"/><allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/></policy>
</busconfig>)")} {
    restart();
  }
  void stop() { daemon_.reset(); }
  void restart() {
    stop();
    daemon_.emplace(command_).outputLine("unix:");
  }
  /// A connection to it, which ends with `QDBusConnection::disconnectFromBus(name)`.
  [[nodiscard]] QDBusConnection connect(const QString& name) const {
    return QDBusConnection::connectToBus(QString::fromStdString(address), name);
  }

  const std::string address;

 private:
  std::vector<std::string> command_;
  std::optional<ChildProcess> daemon_;
};

}  // namespace marigold::test
