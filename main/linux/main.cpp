#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <QtCore/QSocketNotifier>
#include <QtWidgets/QApplication>
#include <unistd.h>

#include "MarigoldApp.h"
#include "app/CommandLine.h"
#include "app/SystemRandomSource.h"
#include "base/ProcessStart.h"
#include "linux/Face.h"
#include "linux/request/LinuxTransport.h"
#include "linux/system/BusLink.h"
#include "linux/system/DisplayProbe.h"
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

using namespace marigold;

namespace {

// The application, from its launch to its end, inside the loop of the toolkit's application.
int run(const Environment& environment, bool hasDisplay, bool hasSessionBus) {
  const Surroundings surroundings = linuxSurroundings(environment);
  StandardErrorLog log;
  LinuxEventLoop loop;
  BusLink sessionBus(loop, sessionBusAddress(environment), hasSessionBus);
  BusLink systemBus(loop, systemBusAddress(environment), false);
  LinuxAttention attention(loop, sessionBus, systemBus);
  SystemRandomSource random;
  InotifyStreamSource eventStreams(log);
  JsonDefaults defaults(surroundings.preferencesFile(), log);
  defaults.follow(loop);
  LinuxTransport transport(requestProgram(), httpsProxy(surroundings), log);
  const IcuLocalTimeText localTime(timeLocale(environment));
  LinuxApplicationControl application;
  LinuxLoginItem loginItem(surroundings, programFile());
  UpdaterController updater;
  const Face face = hasDisplay ? desktopFace(loop, sessionBus, defaults, surroundings.isDevBuild())
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
                   .processId = ::getpid()});

  const EndingSignals signals(loop, [&] { application.quit(); });
  const QSocketNotifier turn(loop.descriptor(), QSocketNotifier::Read);
  QObject::connect(&turn, &QSocketNotifier::activated, [&] { loop.dispatch(); });
  app.launch();
  const int status = QCoreApplication::exec();
  app.terminate();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  startProcess();
  const std::span<char*> words(argv, static_cast<std::size_t>(argc));
  const std::vector<std::string> arguments(words.begin() + (words.empty() ? 0 : 1), words.end());
  answerProbe(arguments);
  const Environment environment = processEnvironment();
  if (const auto status =
          runOneShotMode(parseCommandLine(arguments), linuxSurroundings(environment),
                         std::chrono::system_clock::now(), pictureFiles(), linuxSelfChecks,
                         std::cout, std::cerr)) {
    return *status;
  }

  EndingSignals::block();
  const bool hasSessionBus = sessionBusAnswers(environment);
  StandardErrorLog log;
  auto platforms = usablePlatforms(environment, log, ownProgram);
  if (!platforms) {
    const QCoreApplication application(argc, argv);
    return run(environment, false, hasSessionBus);
  }
  // As an argument, not in the environment: that would reach the programs we start.
  std::string option = "-platform";
  std::vector<char*> forToolkit(words.begin(), words.end());
  forToolkit.insert(forToolkit.end(), {option.data(), platforms->data(), nullptr});
  int count = static_cast<int>(forToolkit.size()) - 1;
  const QApplication application(count, forToolkit.data());
  QApplication::setQuitOnLastWindowClosed(false);
  return run(environment, true, hasSessionBus);
}
