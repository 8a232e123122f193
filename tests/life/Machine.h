#pragma once

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/resource.h>

#include "MarigoldApp.h"
#include "life/Anthropic.h"
#include "life/Luck.h"
#include "life/ToolFiles.h"
#include "linux/system/JsonDefaults.h"
#include "support/Desk.h"
#include "support/SimplePorts.h"
#include "support/TemporaryDirectory.h"

namespace marigold::test {

/// The application on a machine in virtual time, watched at every piece of work for what it must
/// never do.
class Machine {
 public:
  explicit Machine(unsigned seed) : luck_(seed) {
    (void)std::signal(SIGXFSZ, SIG_IGN);
    begin(ContinuousClock::duration::zero(), Date{Seconds{1'781'270'000}});
  }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  virtual ~Machine() { end(); }

  std::vector<std::string> faults;

 protected:
  enum class Trouble : std::uint8_t { none, diskFull, readOnly };

  // One start of the program.
  struct Run {
    explicit Run(const std::string& home) : defaults(home + "/config/preferences.json", log) {}

    ManualEventLoop loop, claude, codex, grok;
    RecordingLog log;
    JsonDefaults defaults;
    ScriptedEventStreams streams;
    ScriptedAttention attention;
    ScriptedLoginItem loginItem;
    Desk desk;
    UpdaterController updater;
    std::optional<MarigoldApp> app;
  };
  struct Times final : LocalTimeText {
    Seconds ahead{0};  // of UTC
    [[nodiscard]] std::string weekdayAndTime(Date date) const override {
      return isoText(date + ahead).substr(5, 11);
    }
  };
  struct Random final : RandomSource {
    explicit Random(Luck& its) : luck(its) {}
    double fraction() override { return luck.fraction(); }
    Luck& luck;
  };

  [[nodiscard]] Instant now() const { return run_->loop.now(); }
  [[nodiscard]] Date date() const { return run_->loop.date(); }
  [[nodiscard]] const UsageStore& store() const { return run_->app->store(); }
  [[nodiscard]] bool isOff() const { return store().preferences().claudeTurnedOff(); }
  std::optional<ProviderSnapshot>& published(ProviderID provider) {
    return published_.at(static_cast<std::size_t>(provider));
  }
  void expect(bool holds, const std::string& otherwise) {
    if (!holds) {
      faults.push_back(otherwise + ", " + isoText(date()) + " after " + lastAct_);
    }
  }

  // The program.

  void begin(ContinuousClock::duration since, Date date) {
    hangsUntil_.clear();
    run_.reset();  // the file is read anew
    run_ = std::make_unique<Run>(home_.path());
    run_->loop.sleep(since);
    run_->loop.setDate(date);
    anthropic_.beginAnew(run_->loop);
    files_.streams = &run_->streams;
    shown_.reset();
    run_->app.emplace(Desktop{.surroundings = {.home = home_.path(),
                                               .caches = home_.path() + "/caches",
                                               .httpStorages = home_.path() + "/http",
                                               .bundleIdentifier = "test",
                                               .environment = {{"MARIGOLD_CACHE_DIR", "~/cache"},
                                                               {"CODEX_HOME", "~/codex"},
                                                               {"GROK_HOME", "~/grok"}}},
                              .loop = run_->loop,
                              .log = run_->log,
                              .defaults = run_->defaults,
                              .eventStreams = run_->streams,
                              .attention = run_->attention,
                              .random = random_,
                              .transport = anthropic_,
                              .readClaudeLogin = [this] { return anthropic_.readLogin(); },
                              .statusBar = run_->desk,
                              .popover = run_->desk,
                              .appearance = run_->desk,
                              .application = run_->desk,
                              .loginItem = run_->loginItem,
                              .updater = run_->updater,
                              .localTime = times_,
                              .textMeasurer = measurer_,
                              .offersBarColors = true},
                      Workers{.claude = run_->claude, .codex = run_->codex, .grok = run_->grok});
    for (const ProviderID provider : allCases<ProviderID>) {
      published(provider) = store().snapshot(provider);
    }
    run_->desk.refusals = luck_.below(3);
    run_->app->launch();
    watch(true);
  }
  void end() {
    run_->app->terminate();
    const std::size_t before = run_->desk.shown.size();
    while (run_->codex.step() || run_->grok.step() || run_->claude.step() || run_->loop.step()) {
    }
    expect(run_->desk.shown.size() == before, "shown after the end");
    run_->app.reset();
  }
  void restart() {
    trouble_ = Trouble::none;
    run_->defaults.set("saved", luck_.chance(0.5));  // and with it what could not be saved before
    const std::string chosen = choices();
    const auto since = now() - ManualEventLoop().now();
    const Date wall = date();
    end();
    begin(since, wall);
    expect(choices() == chosen, "a choice was lost");
  }
  [[nodiscard]] std::string choices() const {
    const Preferences& chosen = store().preferences();
    std::string all = encodeProviderOrder(chosen.providerOrder());
    const auto add = [&](auto... values) {
      ((all += std::to_string(static_cast<int>(values))), ...);
    };
    add(chosen.menuBarLabels(), chosen.menuBarStyle(), chosen.ringColors(), chosen.barColors(),
        chosen.claudeTurnedOff());
    for (const ProviderID id : allCases<ProviderID>) {
      add(chosen.isVisible(id), chosen.showsInMenuBar(id), chosen.menuWindow(id), chosen.accent(id),
          chosen.percentScope(id), chosen.resetScope(id));
    }
    return all;
  }

  // Time: one piece of work after the other, of whoever has some and does not hang.

  bool step() {
    std::array all{&run_->loop, &run_->claude, &run_->codex, &run_->grok};
    std::ranges::shuffle(all, luck_.engine);
    anthropic_.isOff = isOff();
    return std::ranges::any_of(all, [this](ManualEventLoop* one) {
      const auto hangs = hangsUntil_.find(one);
      bool ran = false;
      if (hangs == hangsUntil_.end() || hangs->second <= now()) {
        troubled([&] { ran = one->step(); });
      }
      if (ran) {
        fileReads_ += one == &run_->codex || one == &run_->grok ? 1 : 0;
        watch();
      }
      return ran;
    });
  }
  template <class Work>
  void troubled(const Work& work) {
    rlimit usual{};
    ::getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit full{.rlim_cur = 0, .rlim_max = usual.rlim_max};
    if (trouble_ == Trouble::diskFull) {
      ::setrlimit(RLIMIT_FSIZE, &full);
    }
    trouble_ == Trouble::readOnly ? asOrdinaryUser(work) : work();
    ::setrlimit(RLIMIT_FSIZE, &usual);
  }
  void settle() {
    while (step()) {
    }
    if (hangs()) {
      return;
    }
    anthropic_.asked.clear();
    anthropic_.offAndSettled = isOff();
    expect(!isOff() || published(ProviderID::claude)->health == Health::turnedOff(),
           "Claude is off and told");
    expect(run_->loop.timerEntries() <= 24, "too many timers");
  }
  [[nodiscard]] bool hangs() const {
    return std::ranges::any_of(hangsUntil_, [this](const auto& one) { return one.second > now(); });
  }
  void pass(double length) {
    const Instant end = now() + continuousDuration(Seconds{length});
    settle();
    for (auto due = nextTime(); due && *due <= end; due = nextTime()) {
      run_->loop.sleep(*due - now());
      ++turns_;
      settle();
    }
    run_->loop.sleep(end - now());
  }
  std::optional<Instant> nextTime() {
    auto next = run_->loop.nextTimer();
    for (const auto& [loop, until] : hangsUntil_) {
      next = until > now() ? std::min(next.value_or(until), until) : next;
    }
    return next;
  }

  // What is seen of it.

  void watch(bool acted = false) {
    bool hasCause = acted;
    for (const ProviderID provider : allCases<ProviderID>) {
      auto& before = published(provider);
      const auto& after = store().snapshot(provider);
      if (before != after) {
        expect(!before || !after || mayFollow(*before, *after),
               std::string(rawValue(provider)) + ": " + told(before.value_or(ProviderSnapshot{})) +
                   " became " + told(after.value_or(ProviderSnapshot{})));
        hasCause = true;
        if (provider == ProviderID::claude) {
          anthropic_.asked.push_back(anthropic_.pace.background());  // by who asked before
          anthropic_.pace.see(after);
        }
        before = after;
      }
    }
    hasCause_ |= hasCause;
    for (const StatusItemContent& content : std::exchange(run_->desk.shown, {})) {
      expect(shown_ != content, "the same was shown twice");
      expect(hasCause_ || now() - showsAt_ > (justReset() ? Seconds{0.0333} : Seconds{0.2499}),
             "repainted too soon");
      shown_ = content;
      showsAt_ = now();
      hasCause_ = acted;
    }
    run_->log.lines.clear();
    run_->desk.journal.clear();
  }
  [[nodiscard]] bool mayFollow(const ProviderSnapshot& before,
                               const ProviderSnapshot& after) const {
    const bool wasExhausted = before.provider == ProviderID::grok && before.isUsable() &&
                              before.windows[0].label != "Weekly";
    return !before.isUsable() || !after.isUsable() || after.capturedAt >= before.capturedAt ||
           before.capturedAt > date() || wasExhausted ||
           std::ranges::all_of(before.windows, [&](const UsageWindow& window) {
             return window.resetsAt && *window.resetsAt <= date();
           });
  }
  // A drain may run.
  [[nodiscard]] bool justReset() const {
    return std::ranges::any_of(published_, [&](const auto& reading) {
      return reading && std::ranges::any_of(reading->windows, [&](const UsageWindow& window) {
               return window.resetsAt && *window.resetsAt <= date() &&
                      date() - *window.resetsAt < Seconds{62};
             });
    });
  }
  // What is shown is what would be shown if it were drawn now.
  void look() {
    settle();
    const auto due = run_->loop.nextTimer();
    if (run_->desk.onChange && (!due || *due - now() > std::chrono::milliseconds(250))) {
      const int changes = run_->desk.changes;
      run_->desk.onChange();
      expect(run_->desk.shown.empty(), "the item was out of date");
      expect(run_->desk.changes == changes, "the popover was out of date");
      watch();
    }
  }

  Luck luck_;
  // In memory where the system has such a place, since files are synced often.
  TemporaryDirectory home_{
      std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path()};
  ToolFiles files_{luck_, home_.path()};
  Anthropic anthropic_{
      luck_, [this](bool holds, const std::string& otherwise) { expect(holds, otherwise); }};
  Times times_;
  FixedTextMeasurer measurer_;
  Random random_{luck_};
  std::unique_ptr<Run> run_;
  std::string lastAct_;
  Trouble trouble_ = Trouble::none;
  std::map<ManualEventLoop*, Instant> hangsUntil_;

  std::array<std::optional<ProviderSnapshot>, allCases<ProviderID>.size()> published_;
  std::optional<StatusItemContent> shown_;
  Instant showsAt_;
  bool hasCause_ = false;  // to be repainted, other than time, since it was
  int turns_ = 0;
  int fileReads_ = 0;
};

}  // namespace marigold::test
