#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ClaudePacing.h"
#include "ClaudeReader.h"
#include "DiskCache.h"
#include "EventLoop.h"
#include "FileWatching.h"
#include "Preferences.h"
#include "ProviderSnapshot.h"
#include "UsageProvider.h"
#include "Worker.h"
#include "ports/Attention.h"
#include "ports/EventStream.h"
#include "ports/Log.h"
#include "ports/RandomSource.h"

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
    ClaudeReader* claude = nullptr;  ///< null: Claude's reading stays absent
    std::unique_ptr<Isolated<UsageProvider>> codex;
    std::unique_ptr<Isolated<UsageProvider>> grok;  ///< null: Grok's reading stays absent
    std::string codexSessionsDir;
    std::string grokLogsDir;
  };

  /// Runs the preference migrations and restores the cached readings; nothing runs yet.
  explicit UsageStore(Services services);
  UsageStore(const UsageStore&) = delete;
  UsageStore& operator=(const UsageStore&) = delete;
  UsageStore(UsageStore&&) = delete;
  UsageStore& operator=(UsageStore&&) = delete;
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

  [[nodiscard]] bool engineRuns() const noexcept { return engineRuns_; }
  /// A Claude read has completed since launch or since Claude was turned back on.
  [[nodiscard]] bool claudeYetFetched() const noexcept { return claudeYetFetched_; }
  /// A failed Claude read stands that only an explicit retry clears.
  [[nodiscard]] bool claudeReadLatched() const noexcept { return claudeReadLatched_; }
  [[nodiscard]] bool claudeRetrying() const noexcept { return claudeRetrying_; }
  /// A refresh that the user asked for is running.
  [[nodiscard]] bool refreshInFlight() const noexcept { return refreshInFlight_; }
  [[nodiscard]] const ClaudeCadenceTracker& claudeCadence() const noexcept {
    return claudeCadence_;
  }
  /// The shortest allowed time since the last request to Anthropic, in seconds. In the background
  /// it varies by 15 % either way, so that many machines do not ask in step.
  [[nodiscard]] double claudeMinInterval(ClaudeCadence cadence, Date now);

 private:
  // The reads of one provider, numbered as they are asked for. Codex and Grok answer in order, but
  // a refresh waits for all three: a reading asked for earlier never replaces one asked for later.
  // Claude may answer a later question from memory while an earlier request is out, so there its
  // answers are numbered as they arrive too, and what arrived earlier never replaces what arrived
  // later; what was asked before it was turned off and on is late whenever it arrives.
  struct Reading {
    std::optional<ProviderSnapshot> published;
    std::uint64_t asked = 0;
    std::uint64_t floor = 0;  // answers up to this one come too late
  };
  // One answer of a provider, and which ask it answers.
  struct Answer {
    std::uint64_t ask = 0;
    std::uint64_t arrival = 0;
    std::optional<ProviderSnapshot> snapshot;
  };
  // A piece of work in flight. The store owns it, what waits for answers holds it weakly: once the
  // store drops it, late answers find nothing.
  struct SideTask {
    enum class Kind : std::uint8_t { refresh, userRefresh, claudeRetry };
    Kind kind = Kind::refresh;
    int key = 0;
    int generation = 0;
    bool sampledRead = false;  // Claude was to be read when this started
    Answer claude, codex, grok;
    int missing = 0;  // answers still out
    Work done;
  };

  [[nodiscard]] bool stillValid(int generation) const;
  [[nodiscard]] Reading& reading(ProviderID provider);
  [[nodiscard]] bool hasReader(ProviderID provider) const;
  void purgeNetworkCache() const;
  std::shared_ptr<SideTask> beginSideTask(SideTask::Kind kind);
  void endSideTasks(const std::function<bool(const SideTask&)>& which);
  void runLoop();
  void observeAttention();
  void startWatchers();
  void codexFilesChanged(const WatchBatch& batch, const Work& done);
  void grokLogChanged(const Work& done);
  template <class Question>
  void readForWatcher(ProviderID provider, Question question, const Work& done);
  void ask(Isolated<UsageProvider>* provider, ProviderID id, const std::shared_ptr<SideTask>& task,
           Answer SideTask::* slot);
  [[nodiscard]] std::function<void(ProviderSnapshot)> into(const std::shared_ptr<SideTask>& task,
                                                           Answer SideTask::* slot);
  void finish(const std::shared_ptr<SideTask>& task);
  void applyClaude(const Answer& answer, bool sampledRead);
  void applyCodex(ProviderID provider, const Answer& answer);
  void forgetLastGood(const std::set<ProviderID>& providers);
  // Raises and lowers the flags that stand for running tasks.
  void updateTaskFlags();
  template <class T>
  void set(T& field, T value);
  void stateChanged();

  EventLoop& loop_;
  EventStreamSource& eventStreams_;
  Attention& attention_;
  RandomSource& random_;
  Log& log_;
  const Surroundings& surroundings_;
  DiskCache cache_;
  Preferences preferences_;
  ClaudeReader* claude_;
  std::unique_ptr<Isolated<UsageProvider>> codex_;
  std::unique_ptr<Isolated<UsageProvider>> grok_;
  std::string codexSessionsDir_;
  std::string grokLogsDir_;

  std::map<ProviderID, Reading> readings_;
  std::set<ProviderID> cleared_;  // nothing new was published since they were cleared
  bool claudeYetFetched_ = false;
  bool claudeReadLatched_ = false;
  bool claudeRetrying_ = false;
  bool refreshInFlight_ = false;
  ClaudeCadenceTracker claudeCadence_;

  Timer refreshTimer_;
  std::unique_ptr<CodexWatcher> watcher_;
  std::unique_ptr<CodexWatcher> grokWatcher_;
  WatchCoalescer codexEvents_;
  WatchCoalescer grokEvents_;
  std::vector<std::unique_ptr<AttentionObserver>> observers_;
  bool engineRuns_ = false;
  int engineGeneration_ = 0;
  std::map<int, std::shared_ptr<SideTask>> sideTasks_;
  int nextSideTask_ = 0;
  std::uint64_t arrivals_ = 0;       // answers of side tasks so far
  std::uint64_t claudeArrival_ = 0;  // the one that was applied last
  bool notifyPosted_ = false;
  std::shared_ptr<char> alive_ = std::make_shared<char>();  // held weakly by what may outlive this
};

}  // namespace marigold
