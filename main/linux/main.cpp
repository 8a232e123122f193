#include <csignal>
#include <cstdint>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/time.h>
#include <unistd.h>

#include "CodexProvider.h"
#include "CommandLine.h"
#include "CoreDumps.h"
#include "GrokProvider.h"
#include "IcuLocalTimeText.h"
#include "InotifyStream.h"
#include "JsonDefaults.h"
#include "LinuxAttention.h"
#include "LinuxEventLoop.h"
#include "LinuxRandomSource.h"
#include "LinuxSurroundings.h"
#include "MarigoldApp.h"
#include "StandardErrorLog.h"
#include "TextForm.h"
#include "UsageStore.h"
#include "Worker.h"

namespace {

using namespace marigold;

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

// The form for a machine without a display: the mark as text on standard output.
int runTextForm(int& argc, char** argv, const Surroundings& surroundings) {
  const sigset_t ending = blockEndingSignals();
  const QCoreApplication application(argc, argv);
  StandardErrorLog log;
  LinuxEventLoop loop;
  LinuxAttention attention(loop);
  LinuxRandomSource random;
  InotifyStreamSource eventStreams(log);
  JsonDefaults defaults(
      surroundings.configuration + "/" + surroundings.bundleIdentifier + "/preferences.json", log);
  const IcuLocalTimeText times(timeLocale());
  Worker codexWorker;

  auto codex = std::make_unique<Isolated<UsageProvider>>(
      codexWorker, loop,
      std::make_unique<CodexProvider>(CodexPaths(surroundings), DiskCache(surroundings),
                                      loop.date()));
  UsageStore store({.loop = loop,
                    .defaults = defaults,
                    .eventStreams = eventStreams,
                    .attention = attention,
                    .random = random,
                    .log = log,
                    .surroundings = surroundings,
                    .codex = std::move(codex),
                    .grok = nullptr,
                    .codexSessionsDir = CodexPaths(surroundings).sessionsDir(),
                    .grokLogsDir = GrokPaths(surroundings).logsDir()});

  TextOutput output(loop);
  std::string shown;
  Timer nextChange;
  std::function<void()> show;
  show = [&] {
    const Date now = loop.date();
    const std::vector<MenuBarItem> items = resolveMenuBar(store, now);
    if (std::string lines = textForm(items, store, now, times); lines != shown) {
      output.print(lines);
      shown = std::move(lines);
    }
    nextChange.cancel();
    if (const auto next = nextTextChange(items, now)) {
      // A little late rather than a little early, when nothing would have changed yet.
      nextChange = loop.callAfter(*next - now + Seconds{0.25}, show);
    }
  };
  store.onStateChange = show;

  const OwnedDescriptor signals(::signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
  loop.watch(signals.get(), [&] {
    signalfd_siginfo received = {};
    if (::read(signals.get(), &received, sizeof received) > 0) {
      QCoreApplication::quit();
    }
  });
  const QSocketNotifier turn(loop.descriptor(), QSocketNotifier::Read);
  QObject::connect(&turn, &QSocketNotifier::activated, [&loop] { loop.dispatch(); });

  const auto clockChanges = attention.observe(AttentionEvent::clockChange, show);
  log.note("launched (pid " + std::to_string(::getpid()) + ")");
  show();
  store.start();
  const int status = QCoreApplication::exec();

  leaveSoonRegardless();
  store.shutdown();
  codexWorker.stop();
  loop.unwatch(signals.get());
  loop.close();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // A reader of our output that goes away, and a full disk quota, are errors of a write, not ends.
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
  marigold::forbidCoreDumps();

  const std::span<char*> words(argv, static_cast<std::size_t>(argc));
  const std::vector<std::string> arguments(words.begin() + (words.empty() ? 0 : 1), words.end());
  const marigold::Surroundings surroundings = marigold::linuxSurroundings();
  const marigold::Command command = marigold::parseCommandLine(arguments);
  const marigold::Date now = std::chrono::system_clock::now();
  if (const auto status =
          marigold::runOneShotMode(command, surroundings, now, std::cout, std::cerr)) {
    return *status;
  }
  return runTextForm(argc, argv, surroundings);
}
