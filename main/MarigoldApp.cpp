#include "MarigoldApp.h"

#include <cstdlib>
#include <ostream>
#include <utility>

#include "UsageStore.h"
#include "app/CodexDump.h"
#include "app/InstanceAnswers.h"
#include "app/PopoverShot.h"
#include "app/Screenshots.h"
#include "base/Worker.h"
#include "codex/CodexProvider.h"
#include "grok/GrokProvider.h"
#include "model/DiskCache.h"

namespace marigold {

namespace {

PopoverTraits popoverTraits(const Desktop& desktop) {
  const Surroundings& surroundings = desktop.surroundings;
  return {.texts = desktop.texts,
          .offersBarColors = desktop.offersBarColors,
          .looksIn = {surroundings.withTilde(desktop.claudeLoginPlace),
                      surroundings.withTilde(CodexPaths(surroundings).sessionsDir()),
                      surroundings.withTilde(GrokPaths(surroundings).logsDir())}};
}

}  // namespace

class MarigoldApp::Threads {
 public:
  explicit Threads(EventLoop& home) : claude_(home), codex_(home), grok_(home) {}

  [[nodiscard]] Workers workers() { return {.claude = claude_, .codex = codex_, .grok = grok_}; }
  void stop() {
    codex_.stop();
    grok_.stop();
    claude_.stop();
  }

 private:
  Worker claude_;
  Worker codex_;
  Worker grok_;
};

// In the order they are made; they die in the reverse.
class MarigoldApp::Parts {
 public:
  Parts(const Desktop& desktop, const Workers& workers)
      : desktop_(desktop),
        claude_(desktop.loop, workers.claude, desktop.transport, desktop.readClaudeLogin,
                DiskCache(desktop_.surroundings)),
        store_({.loop = desktop.loop,
                .defaults = desktop.defaults,
                .eventStreams = desktop.eventStreams,
                .attention = desktop.attention,
                .random = desktop.random,
                .log = desktop.log,
                .surroundings = desktop_.surroundings,
                .loginItem = desktop.loginItem,
                .claude = claude_,
                .codex = {.worker = workers.codex,
                          .reader = std::make_unique<CodexProvider>(
                              CodexPaths(desktop_.surroundings), DiskCache(desktop_.surroundings)),
                          .directory = CodexPaths(desktop_.surroundings).sessionsDir()},
                .grok = {.worker = workers.grok,
                         .reader = std::make_unique<GrokProvider>(GrokPaths(desktop_.surroundings),
                                                                  DiskCache(desktop_.surroundings)),
                         .directory = GrokPaths(desktop_.surroundings).logsDir()}}),
        delegate_({.store = store_,
                   .loop = desktop.loop,
                   .log = desktop.log,
                   .attention = desktop.attention,
                   .statusBar = desktop.statusBar,
                   .popover = desktop.popover,
                   .appearance = desktop.appearance,
                   .application = desktop.application,
                   .updater = desktop.updater,
                   .localTime = desktop.localTime,
                   .textMeasurer = desktop.textMeasurer,
                   .surroundings = desktop_.surroundings,
                   .processId = desktop.processId,
                   .popoverTraits = popoverTraits(desktop_)}),
        answers_({.store = store_,
                  .delegate = delegate_,
                  .application = desktop.application,
                  .loop = desktop.loop,
                  .localTime = desktop.localTime,
                  .door = *desktop_.door,
                  .texts = desktop.texts}) {}

  void launch(bool opensPopover) {
    delegate_.applicationDidFinishLaunching();
    if (opensPopover) {
      delegate_.openOnRequest();
    }
  }

  void terminate(Threads* threads) {
    desktop_.application.leaveRegardless(longestEnd);
    delegate_.applicationWillTerminate();
    desktop_.transport.stop();  // ends the request that Claude's worker may wait for
    if (threads != nullptr) {
      threads->stop();
    }
    desktop_.loop.close();
  }

  [[nodiscard]] const UsageStore& store() const { return store_; }

 private:
  const Desktop desktop_;
  ClaudeProvider claude_;
  UsageStore store_;
  AppDelegate delegate_;
  InstanceAnswers answers_;
};

MarigoldApp::MarigoldApp(const Desktop& desktop)
    : threads_(std::make_unique<Threads>(desktop.loop)),
      parts_(std::make_unique<Parts>(desktop, threads_->workers())) {}

MarigoldApp::MarigoldApp(const Desktop& desktop, const Workers& workers)
    : parts_(std::make_unique<Parts>(desktop, workers)) {}

MarigoldApp::~MarigoldApp() = default;

void MarigoldApp::launch(bool opensPopover) {
  parts_->launch(opensPopover);
}

void MarigoldApp::terminate() {
  parts_->terminate(threads_.get());
}

const UsageStore& MarigoldApp::store() const {
  return parts_->store();
}

namespace {

int written(bool done, const Command& command, std::ostream& err) {
  if (!done) {
    err << "marigold: cannot write " << command.path << '\n';
  }
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

std::optional<int> runOneShotMode(const Command& command, const Surroundings& surroundings,
                                  Date now, const PictureFiles& pictures,
                                  const DesktopChecks& checks, std::ostream& out,
                                  std::ostream& err) {
  switch (command.mode) {
    case Command::Mode::application:
    case Command::Mode::open:
    case Command::Mode::quit:
    case Command::Mode::status:
      return std::nullopt;
    case Command::Mode::selfTest: {
      out << "Marigold self-test:\n";
      const bool passed = runSelfTest(surroundings, checks, out);
      out << "SELFTEST" << (passed ? " PASS" : " FAIL") << '\n';
      return passed ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    case Command::Mode::dumpCodex:
      out << codexDump(surroundings, now);
      return EXIT_SUCCESS;
    case Command::Mode::help:
      out << helpText();
      return EXIT_SUCCESS;
    case Command::Mode::version:
      out << versionText();
      return EXIT_SUCCESS;
    case Command::Mode::shotMenuBar:
      return written(pictures.save(menuBarShot, command.path), command, err);
    case Command::Mode::shot:
    case Command::Mode::shotSettings:
    case Command::Mode::shotOff:
    case Command::Mode::shotReconnect:
    case Command::Mode::shotHeld:
      return written(pictures.savePopover(popoverShot(command.mode, {.scheme = command.scheme},
                                                      pictures.texts, pictures.offersBarColors),
                                          command.path),
                     command, err);
  }
  return EXIT_FAILURE;
}

}  // namespace marigold
