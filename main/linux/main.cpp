#include <array>
#include <csignal>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>
#include <QtDBus/QDBusConnection>
#include <QtGui/QImage>
#include <QtWidgets/QApplication>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/time.h>
#include <unistd.h>

#include "AppDelegate.h"
#include "ClaudeProvider.h"
#include "CodexProvider.h"
#include "CommandLine.h"
#include "CoreDumps.h"
#include "DisplayProbe.h"
#include "GrokProvider.h"
#include "IcuLocalTimeText.h"
#include "InotifyStream.h"
#include "JsonDefaults.h"
#include "LinuxAppearance.h"
#include "LinuxApplicationControl.h"
#include "LinuxAttention.h"
#include "LinuxEventLoop.h"
#include "LinuxLogin.h"
#include "LinuxRandomSource.h"
#include "LinuxStatusItem.h"
#include "LinuxSurroundings.h"
#include "LinuxTransport.h"
#include "MarigoldApp.h"
#include "PopoverWindow.h"
#include "QtPainter.h"
#include "Screenshots.h"
#include "StandardErrorLog.h"
#include "TextForm.h"
#include "UsageStore.h"
#include "Worker.h"

using namespace marigold;

namespace {

// Ends the process after half a second, whatever still blocks: a worker stuck in a read of a dead
// network file system must not keep the session from ending.
void leaveSoonRegardless() {
  (void)std::signal(SIGALRM, [](int) { ::_exit(EXIT_SUCCESS); });
  itimerval soon = {};
  soon.it_value.tv_usec = 500'000;
  (void)::setitimer(ITIMER_REAL, &soon, nullptr);
}

// SIGINT, SIGTERM and SIGHUP as readable events. Blocked before any thread exists, so that every
// thread inherits it.
sigset_t blockEndingSignals() {
  sigset_t ending;
  sigemptyset(&ending);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&ending, signal);
  }
  ::pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  return ending;
}

// Standard output, which may be a terminal that was stopped or a pipe that nobody empties: what
// does not fit waits, and only the newest text does.
class TextOutput {
 public:
  explicit TextOutput(EventLoop& loop) : loop_(loop) {}

  void print(std::string text) {
    waiting_ = std::move(text);
    flush();
  }

 private:
  void flush() {
    pollfd writable{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    // A pipe that is writable takes PIPE_BUF bytes at once, more than a text has.
    if (::poll(&writable, 1, 0) == 0) {
      retry_ = loop_.callAfter(Seconds{1}, [this] { flush(); });
      return;
    }
    retry_.cancel();
    [[maybe_unused]] const ssize_t ignored =
        ::write(STDOUT_FILENO, waiting_.data(), waiting_.size());
  }

  EventLoop& loop_;
  std::string waiting_;
  Timer retry_;
};

// What shows the application: chosen by whether there is a display.
struct Face {
  std::unique_ptr<StatusBar> statusBar;
  std::unique_ptr<Popover> popover = std::make_unique<Popover>();
  std::unique_ptr<Appearance> appearance = std::make_unique<Appearance>();
  std::unique_ptr<TextMeasurer> textMeasurer = std::make_unique<TextMeasurer>();
};

// The mark as text on standard output.
Face textFace(EventLoop& loop) {
  const auto output = std::make_shared<TextOutput>(loop);
  return {.statusBar = std::make_unique<TextStatusBar>(
              [output](std::string text) { output->print(std::move(text)); })};
}

// The mark on a desktop.
Face desktopFace(EventLoop& loop, Defaults& defaults, bool developmentBuild) {
  auto appearance = std::make_unique<LinuxAppearance>(QDBusConnection::sessionBus());
  auto statusBar = std::make_unique<LinuxStatusBar>(loop, defaults, *appearance, developmentBuild);
  return {.statusBar = std::move(statusBar),
          .popover = std::make_unique<PopoverWindow>(),
          .appearance = std::move(appearance),
          .textMeasurer = std::make_unique<QtTextMeasurer>()};
}

// The application, from its launch to its end, inside the loop of the toolkit's application.
int runApplication(const Surroundings& surroundings, const sigset_t& ending, bool hasDisplay) {
  StandardErrorLog log;
  LinuxEventLoop loop;
  LinuxAttention attention(loop);
  LinuxRandomSource random;
  InotifyStreamSource eventStreams(log);
  JsonDefaults defaults(
      surroundings.configuration + "/" + surroundings.bundleIdentifier + "/preferences.json", log);
  const IcuLocalTimeText times(timeLocale());
  Worker codexWorker;
  Worker grokWorker;
  Worker claudeWorker;

  auto codex = std::make_unique<Isolated<UsageProvider>>(
      codexWorker, loop,
      std::make_unique<CodexProvider>(CodexPaths(surroundings), DiskCache(surroundings),
                                      loop.date()));
  auto grok = std::make_unique<Isolated<UsageProvider>>(
      grokWorker, loop,
      std::make_unique<GrokProvider>(GrokPaths(surroundings), DiskCache(surroundings),
                                     loop.date()));
  LinuxTransport transport(requestProgram(), httpsProxy(surroundings), log);
  ClaudeProvider claude(loop, claudeWorker, transport,
                        LinuxLogin(claudeCredentialsFile(surroundings), ::geteuid()),
                        DiskCache(surroundings));
  UsageStore store({.loop = loop,
                    .defaults = defaults,
                    .eventStreams = eventStreams,
                    .attention = attention,
                    .random = random,
                    .log = log,
                    .surroundings = surroundings,
                    .claude = &claude,
                    .codex = std::move(codex),
                    .grok = std::move(grok),
                    .codexSessionsDir = CodexPaths(surroundings).sessionsDir(),
                    .grokLogsDir = GrokPaths(surroundings).logsDir()});

  const Face face = hasDisplay
                        ? desktopFace(loop, defaults, isDevBuild(surroundings.bundleIdentifier))
                        : textFace(loop);
  LinuxApplicationControl application;
  LoginItem loginItem;
  Updater updater;
  AppDelegate delegate({.store = store,
                        .loop = loop,
                        .log = log,
                        .attention = attention,
                        .statusBar = *face.statusBar,
                        .popover = *face.popover,
                        .appearance = *face.appearance,
                        .application = application,
                        .loginItem = loginItem,
                        .updater = updater,
                        .localTime = times,
                        .textMeasurer = *face.textMeasurer,
                        .surroundings = surroundings,
                        .processId = ::getpid()});

  const OwnedDescriptor signals(::signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
  loop.watch(signals.get(), [&] {
    signalfd_siginfo received = {};
    if (::read(signals.get(), &received, sizeof received) > 0) {
      application.quit();
    }
  });
  const QSocketNotifier turn(loop.descriptor(), QSocketNotifier::Read);
  QObject::connect(&turn, &QSocketNotifier::activated, [&loop] { loop.dispatch(); });

  delegate.applicationDidFinishLaunching();
  const int status = QCoreApplication::exec();

  leaveSoonRegardless();
  delegate.applicationWillTerminate();
  transport.stop();  // ends the request that Claude's worker may wait for
  codexWorker.stop();
  grokWorker.stop();
  claudeWorker.stop();
  loop.unwatch(signals.get());
  loop.close();
  return status;
}

// Draws the mark's looks to a PNG file, without a display.
int renderMenuBarShot(const std::string& path) {
  std::array<std::string, 3> texts{"marigold", "-platform", "offscreen"};
  std::array<char*, 4> words{texts[0].data(), texts[1].data(), texts[2].data(), nullptr};
  int count = static_cast<int>(texts.size());
  const QGuiApplication application(count, words.data());
  constexpr double scale = 2;
  const QImage picture = rasterize(menuBarShot(QtTextMeasurer()), scale);
  if (!picture.save(QString::fromStdString(path), "PNG")) {
    std::cerr << "marigold: cannot write " << path << '\n';
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  // A reader of our output that goes away, and a full disk quota, are errors of a write, not ends.
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
  marigold::forbidCoreDumps();

  const std::span<char*> words(argv, static_cast<std::size_t>(argc));
  const std::vector<std::string> arguments(words.begin() + (words.empty() ? 0 : 1), words.end());
  const Surroundings surroundings = linuxSurroundings();
  const Command command = parseCommandLine(arguments);
  const Date now = std::chrono::system_clock::now();
  if (command.mode == Command::Mode::shotMenuBar) {
    return renderMenuBarShot(command.path);
  }
  if (const auto status = runOneShotMode(command, surroundings, now, std::cout, std::cerr)) {
    return *status;
  }

  const sigset_t ending = blockEndingSignals();
  StandardErrorLog log;
  const auto platforms = usablePlatforms(displayEnvironment(), log);
  if (!platforms) {
    const QCoreApplication application(argc, argv);
    return runApplication(surroundings, ending, false);
  }
  // As an argument, not in the environment: that would reach the programs we start.
  std::string option = "-platform";
  std::string chosen = *platforms;
  std::vector<char*> forToolkit(words.begin(), words.end());
  forToolkit.insert(forToolkit.end(), {option.data(), chosen.data(), nullptr});
  int count = static_cast<int>(forToolkit.size()) - 1;
  const QApplication application(count, forToolkit.data());
  QApplication::setQuitOnLastWindowClosed(false);
  return runApplication(surroundings, ending, true);
}
