#include "linux/system/Probe.h"

#include <array>
#include <cstdlib>
#include <string_view>

#include <QtDBus/QDBusConnection>
#include <QtGui/QGuiApplication>
#include <unistd.h>

#include "base/BoundedProcessRun.h"

namespace marigold {

namespace {

// Not in --help: nobody else needs them.
constexpr std::string_view platformFlag = "--open-platform";
constexpr std::string_view busFlag = "--open-bus";

}  // namespace

ProbeAnswer probe(const std::string& program, Probe what, const std::string& name,
                  const Environment& environment, Seconds patience, const std::atomic<bool>* stop) {
  const SecretCommandResult result = BoundedProcessRun::execute(
      {.executable = program,
       .arguments = {std::string(what == Probe::platform ? platformFlag : busFlag), name},
       .environment = environment,
       .timeout = patience,
       .grace = Seconds{0.1},
       .stop = stop});
  if (result.timedOut) {
    return ProbeAnswer::silent;
  }
  return result.status == EXIT_SUCCESS && !result.launchFailed ? ProbeAnswer::works
                                                               : ProbeAnswer::fails;
}

void answerProbe(std::span<const std::string> arguments) {
  if (arguments.size() != 2 ||
      (arguments.front() != platformFlag && arguments.front() != busFlag)) {
    return;
  }
  ::alarm(60);  // should whoever asked be gone before it could end us
  if (arguments.front() == platformFlag) {
    std::array<std::string, 3> texts{"marigold", "-platform", arguments.back()};
    std::array<char*, 4> words{texts[0].data(), texts[1].data(), texts[2].data(), nullptr};
    int count = static_cast<int>(texts.size());
    const QGuiApplication application(count, words.data());
    ::_exit(EXIT_SUCCESS);  // without the wait for the display that an orderly end may be
  }
  const bool works =
      QDBusConnection::connectToBus(QString::fromStdString(arguments.back()), "probe")
          .isConnected();
  ::_exit(works ? EXIT_SUCCESS : EXIT_FAILURE);
}

}  // namespace marigold
