#include <iostream>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>
#include <unistd.h>

#include "MarigoldApp.h"
#include "app/CommandLine.h"
#include "app/SystemRandomSource.h"
#include "base/ProcessStart.h"
#include "linux/Face.h"
#include "linux/instance/InstanceBus.h"
#include "linux/instance/InstanceCall.h"
#include "linux/instance/InstanceServer.h"
#include "linux/request/LinuxTransport.h"
#include "linux/system/BusLink.h"
#include "linux/system/EndingSignals.h"
#include "linux/system/IcuLocalTimeText.h"
#include "linux/system/InotifyStream.h"
#include "linux/system/JsonDefaults.h"
#include "linux/system/LinuxApplicationControl.h"
#include "linux/system/LinuxAttention.h"
#include "linux/system/LinuxLogin.h"
#include "linux/system/LinuxLoginItem.h"
#include "linux/system/LinuxSelfChecks.h"
#include "linux/system/LinuxSurroundings.h"
#include "linux/system/PictureFile.h"
#include "linux/system/Probe.h"
#include "linux/system/StandardErrorLog.h"
#include "linux/system/Toolkit.h"

using namespace marigold;

namespace {

// The application, from its launch to its end, inside the loop of the toolkit's application.
int run(const Environment& environment, const Surroundings& surroundings, Log& log,
        const LocalTimeText& localTime, const Toolkit& toolkit, int listener, bool opens) {
  LinuxEventLoop loop;
  BusLink sessionBus(loop, sessionBusAddress(environment), toolkit.hasSessionBus());
  BusLink systemBus(loop, systemBusAddress(environment), false);
  LinuxAttention attention(loop, sessionBus, systemBus);
  SystemRandomSource random;
  InotifyStreamSource eventStreams(log);
  JsonDefaults defaults(surroundings.preferencesFile(), log);
  defaults.follow(loop);
  LinuxTransport transport(requestProgram(), httpsProxy(surroundings), log);
  LinuxApplicationControl application;
  LinuxLoginItem loginItem(surroundings, programFile());
  UpdaterController updater;
  const auto door = std::make_shared<InstanceServer>(loop, listener);
  const Face face = toolkit.hasDisplay()
                        ? desktopFace(loop, sessionBus, defaults, surroundings.isDevBuild())
                        : textFace(loop);
  MarigoldApp app({.surroundings = surroundings,
                   .loop = loop,
                   .log = log,
                   .defaults = defaults,
                   .eventStreams = eventStreams,
                   .attention = attention,
                   .random = random,
                   .transport = transport,
                   .readClaudeLogin = LinuxLogin(claudeCredentialsFile(surroundings), ::geteuid()),
                   .statusBar = *face.statusBar,
                   .popover = *face.popover,
                   .appearance = *face.appearance,
                   .application = application,
                   .loginItem = loginItem,
                   .updater = updater,
                   .localTime = localTime,
                   .textMeasurer = *face.textMeasurer,
                   .texts = linuxTexts,
                   .offersBarColors = true,
                   .claudeLoginPlace = claudeCredentialsFile(surroundings),
                   .processId = ::getpid(),
                   .door = door});

  const InstanceBus busDoor(sessionBus, *door, [&] { application.quit(); });
  const EndingSignals signals(loop, [&] { application.quit(); });
  const QSocketNotifier turn(loop.descriptor(), QSocketNotifier::Read);
  QObject::connect(&turn, &QSocketNotifier::activated, [&] { loop.dispatch(); });
  app.launch(opens);
  const int status = QCoreApplication::exec();
  app.terminate();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  startProcess();
  const std::span<char*> words(argv, static_cast<std::size_t>(argc));
  const std::vector<std::string> arguments(words.begin() + (words.empty() ? 0 : 1), words.end());
  answerBusProbe(arguments);
  const Environment environment = processEnvironment();
  const Surroundings surroundings = linuxSurroundings(environment);
  const Command command = parseCommandLine(arguments);
  if (const auto status = runOneShotMode(command, surroundings, std::chrono::system_clock::now(),
                                         pictureFiles(), linuxSelfChecks, std::cout, std::cerr)) {
    return *status;
  }
  InstanceSeat seat(environment, surroundings);
  if (const auto status = callInstance(command, seat, surroundings, environment)) {
    return *status;
  }

  EndingSignals::block();
  StandardErrorLog log;
  std::unique_ptr<IcuLocalTimeText> localTime;
  const Toolkit toolkit(words, environment, log, [&] {
    localTime = std::make_unique<IcuLocalTimeText>(timeLocale(environment));
  });
  return run(environment, surroundings, log, *localTime, toolkit, seat.listener(),
             command.mode == Command::Mode::open);
}
