#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "base/EventLoop.h"
#include "base/Lifetime.h"
#include "claude/ClaudePacing.h"
#include "claude/ClaudeReader.h"
#include "model/DiskCache.h"
#include "model/Preferences.h"
#include "model/ProviderSnapshot.h"
#include "ports/Attention.h"
#include "ports/EventStream.h"
#include "ports/Log.h"
#include "ports/RandomSource.h"
#include "store/FileSource.h"
#include "store/LaunchAtLogin.h"
#include "store/Publication.h"
#include "store/SideTasks.h"

namespace marigold {

/// Work started under an earlier start of the engine, or after its end, publishes nothing.
[[nodiscard]] bool engineWorkStillValid(int queued, int current, bool running) noexcept;

/// What the menu shows for Claude: `published`, but that it is off while it is not read.
[[nodiscard]] std::optional<ProviderSnapshot> claudeMenuSnapshot(
    std::optional<ProviderSnapshot> published, bool turnedOff, Date now);
/// What it shows before the first read: the reading `cached` on disk, as a stale one.
[[nodiscard]] std::optional<ProviderSnapshot> coldStartClaudeSnapshot(
    const std::optional<CachedSnapshot>& cached, bool turnedOff, Date now);

/// The one owner of every provider's current reading, of the preferences, the file watchers and the
/// refresh loop. Confined to the main loop's thread.
class UsageStore {
 public:
  /// How eagerly a refresh may ask Anthropic's endpoint.
  enum class ClaudeCadence : std::uint8_t {
    background,  ///< the periodic loop
    onDemand,    ///< the user is looking
    manual,      ///< the user asked
  };

  /// What the store works with. The references must outlive it.
  struct Services {
    EventLoop& loop;
    Defaults& defaults;
    EventStreamSource& eventStreams;
    Attention& attention;
    RandomSource& random;
    Log& log;
    const Surroundings& surroundings;
    LoginItem& loginItem;
    ClaudeReader& claude;
    FileSource::Origin codex;
    FileSource::Origin grok;
  };

  /// Runs the preference migrations and restores the cached readings; nothing runs yet.
  explicit UsageStore(Services services);
  UsageStore(const UsageStore&) = delete;
  UsageStore& operator=(const UsageStore&) = delete;
  ~UsageStore();

  /// Called once per turn of the loop after any published reading, preference or flag changed.
  std::function<void()> onStateChange;

  /// Starts the engine: attention observers, file watchers and the refresh loop.
  void start();
  /// Ends it. What is still in flight publishes nothing.
  void shutdown();

  void refreshNow();
  void refreshOnUserAttention();
  /// One refresh of all providers; `done` is called when its results are applied, and not at all
  /// when the engine stops before.
  void refreshOnce(ClaudeCadence cadence, Work done = {});

  void turnOffClaude();
  void turnOnClaude();
  void retryClaudeRead();
  /// Wipes the readings and cache files of `providers` at once.
  void clearStoredUsage(const std::set<ProviderID>& providers);
  void clearStoredData() { clearStoredUsage(providersClearedByClearAll()); }

  [[nodiscard]] const std::optional<ProviderSnapshot>& snapshot(ProviderID provider) const;
  /// A reading of the provider is published.
  [[nodiscard]] bool isPresent(ProviderID provider) const;
  /// The visible providers, in display order.
  [[nodiscard]] std::vector<ProviderID> visibleProviders() const;
  /// The providers in the menu bar that are present, in display order.
  [[nodiscard]] std::vector<ProviderID> menuBarBars() const;
  [[nodiscard]] Preferences& preferences() noexcept { return preferences_; }
  [[nodiscard]] const Preferences& preferences() const noexcept { return preferences_; }

  void setLaunchAtLogin(bool on) { login_.setLaunchAtLogin(on); }
  void refreshLoginItemStatus() { login_.refreshLoginItemStatus(); }
  void reregisterLoginItemIfEnabled() { login_.reregisterLoginItemIfEnabled(); }
  [[nodiscard]] bool launchAtLogin() const noexcept { return login_.launchAtLogin(); }
  [[nodiscard]] const std::optional<std::string>& launchAtLoginError() const noexcept {
    return login_.launchAtLoginError();
  }
  /// The user must still agree in the system's settings, which the other shows.
  [[nodiscard]] bool launchAtLoginRequiresApproval() const noexcept {
    return login_.requiresApproval();
  }
  void openLoginItemSettings() { login_.openLoginItemSettings(); }

  [[nodiscard]] bool engineRuns() const noexcept { return engineRuns_; }
  /// A Claude read has completed since launch or since Claude was turned back on.
  [[nodiscard]] bool claudeYetFetched() const noexcept { return claudeYetFetched_; }
  /// A failed Claude read stands that only an explicit retry clears.
  [[nodiscard]] bool claudeReadLatched() const noexcept { return claudeReadLatched_; }
  [[nodiscard]] bool claudeRetrying() const noexcept { return claudeRetrying_; }
  /// A refresh that the user asked for is running.
  [[nodiscard]] bool refreshInFlight() const noexcept { return refreshInFlight_; }

 private:
  using Task = SideTasks::Task;

  void runLoop();
  void observeAttention();
  void startWatcher();
  void runTracked(SideTask::Kind kind, Work done, const std::function<void(const Task&)>& work);
  template <class Which>
  void endSideTasks(const Which& which);
  // What takes the answer to a question being asked of `provider`: `task` as long as it lasts. The
  // answer is published with the others of the task, or by itself when it comes later.
  [[nodiscard]] FileSource::Answer answerTo(ProviderID provider, const Task& task = {});
  void finish(const Task& task);
  [[nodiscard]] bool stillValid(int generation) const;
  void applyClaude(const Answer& answer, bool sampledRead);
  // Codex's answers, and Grok's by the same rule.
  void applyCodex(ProviderID provider, const Answer& answer);
  void apply(ProviderID provider, const Answer& answer, bool sampledRead);
  bool offer(ProviderID provider, const Answer& answer);
  void put(ProviderID provider, std::optional<ProviderSnapshot> snapshot);
  void filesChanged(ProviderID provider, const WatchBatch& batch, const Work& done);
  // The shortest allowed time since the last request to Anthropic. In the background it varies by
  // 15 % either way, so that many machines do not ask in step.
  [[nodiscard]] Seconds claudeMinInterval(ClaudeCadence cadence, Date now);
  void forgetLastGood(const std::set<ProviderID>& providers);
  [[nodiscard]] FileSource& source(ProviderID provider);
  // Raises and lowers the flags that stand for running tasks.
  void updateTaskFlags();
  template <class T>
  void set(T& field, T value);
  void stateChanged();

  EventLoop& loop_;
  Attention& attention_;
  RandomSource& random_;
  Log& log_;
  const Surroundings& surroundings_;
  DiskCache cache_;
  Preferences preferences_;
  LaunchAtLogin login_;
  ClaudeReader& claudeProvider_;
  FileSource codexProvider_;
  FileSource grokProvider_;

  std::map<ProviderID, Publication> publications_{
      {ProviderID::claude, Publication(Publication::Order::byArrival)},
      {ProviderID::codex, Publication(Publication::Order::byCapture)},
      {ProviderID::grok, Publication(Publication::Order::byCapture)}};
  bool claudeYetFetched_ = false;
  bool claudeReadLatched_ = false;
  bool claudeRetrying_ = false;
  bool refreshInFlight_ = false;
  ClaudeCadenceTracker claudeCadence_;

  Timer refreshTask_;
  std::vector<std::unique_ptr<AttentionObserver>> observers_;
  bool engineRuns_ = false;
  int engineGeneration_ = 0;
  SideTasks sideTasks_;
  bool notifyPosted_ = false;
  Lifetime lifetime_;
};

}  // namespace marigold
