#include "UsageStore.h"

#include <algorithm>
#include <utility>

namespace marigold {

namespace {

// Between the end of one periodic refresh and the start of the next, in seconds.
constexpr Seconds refreshPeriod{180};

// A published reading from the future was captured under a wrong clock and keeps nothing out.
bool isOlder(const ProviderSnapshot& fresh, const std::optional<ProviderSnapshot>& published,
             Date now) {
  return published && published->isUsable() && fresh.isUsable() &&
         fresh.capturedAt < published->capturedAt && published->capturedAt <= now;
}

}  // namespace

bool engineWorkStillValid(int queued, int current, bool running) noexcept {
  return running && queued == current;
}

std::optional<ProviderSnapshot> claudeMenuSnapshot(std::optional<ProviderSnapshot> published,
                                                   bool turnedOff, Date now) {
  return claudeReadsThisCycle(turnedOff) ? std::move(published)
                                         : std::optional(turnedOffClaudeSnapshot(now));
}

std::optional<ProviderSnapshot> coldStartClaudeSnapshot(const std::optional<CachedSnapshot>& cached,
                                                        bool turnedOff, Date now) {
  return claudeMenuSnapshot(cached ? std::optional(cached->restored(now)) : std::nullopt, turnedOff,
                            now);
}

UsageStore::UsageStore(Services services)
    : loop_(services.loop),
      eventStreams_(services.eventStreams),
      attention_(services.attention),
      random_(services.random),
      log_(services.log),
      surroundings_(services.surroundings),
      cache_(services.surroundings),
      preferences_(services.defaults),
      claude_(services.claude),
      codex_(std::move(services.codex)),
      grok_(std::move(services.grok)),
      codexSessionsDir_(std::move(services.codexSessionsDir)),
      grokLogsDir_(std::move(services.grokLogsDir)),
      codexEvents_(loop_, [this](const WatchBatch& batch,
                                 const Work& done) { codexFilesChanged(batch, done); }),
      grokEvents_(loop_,
                  [this](const WatchBatch& /*batch*/, const Work& done) { grokLogChanged(done); }) {
  preferences_.onChange = [this] { stateChanged(); };
  const Date now = loop_.date();
  for (const ProviderID provider : allProviders) {
    // What nothing reads any more must not stand for ever.
    const auto cached = hasReader(provider) ? cache_.load(provider) : std::nullopt;
    if (provider == ProviderID::claude) {
      reading(provider).published =
          coldStartClaudeSnapshot(cached, preferences_.claudeTurnedOff(), now);
    } else if (cached) {
      reading(provider).published = cached->restored(now);
    }
  }
  purgeNetworkCache();
}

UsageStore::~UsageStore() {
  shutdown();
  // A read that was running while its provider was cleared may have saved once more.
  for (const ProviderID provider : cleared_) {
    cache_.remove(provider);
  }
}

void UsageStore::start() {
  set(engineRuns_, true);
  ++engineGeneration_;
  observeAttention();
  startWatchers();
  runLoop();
}

void UsageStore::shutdown() {
  refreshTimer_.cancel();
  watcher_.reset();
  grokWatcher_.reset();
  codexEvents_.cancel();
  grokEvents_.cancel();
  endSideTasks([](const SideTask& /*task*/) { return true; });
  observers_.clear();
  set(engineRuns_, false);
}

void UsageStore::runLoop() {
  refreshOnce(ClaudeCadence::background,
              [this] { refreshTimer_ = loop_.callAfter(refreshPeriod, [this] { runLoop(); }); });
}

void UsageStore::observeAttention() {
  observers_.clear();
  for (const AttentionEvent event :
       {AttentionEvent::wake, AttentionEvent::screenWake, AttentionEvent::spaceChange}) {
    auto observer = attention_.observe(event, [this, event] {
      if (event == AttentionEvent::wake) {
        log_.note("woke from sleep, refreshing");
      }
      refreshOnUserAttention();
    });
    if (observer) {
      observers_.push_back(std::move(observer));
    }
  }
}

void UsageStore::startWatchers() {
  // The callbacks come on the watchers' threads; only the hop to the main loop happens there.
  const auto watch = [this](std::unique_ptr<CodexWatcher>& watcher, const std::string& path,
                            WatchCoalescer& events) {
    if (!watcher) {
      watcher = CodexWatcher::make(
          eventStreams_, path,
          [this, &events, &loop = loop_, alive = std::weak_ptr(alive_)](const WatchBatch& batch) {
            loop.post([this, &events, alive, batch] {
              if (!alive.expired() && engineRuns_) {
                events.submit(batch);
              }
            });
          });
    }
    if (watcher) {
      watcher->start();  // again where the system refused before
    }
  };
  if (codex_) {
    watch(watcher_, codexSessionsDir_, codexEvents_);
  }
  if (grok_) {
    watch(grokWatcher_, grokLogsDir_, grokEvents_);
  }
}

void UsageStore::refreshNow() {
  refreshOnce(ClaudeCadence::manual);
}

void UsageStore::refreshOnUserAttention() {
  refreshOnce(ClaudeCadence::onDemand);
}

void UsageStore::refreshOnce(ClaudeCadence cadence, Work done) {
  if (!engineRuns_) {
    return;
  }
  startWatchers();
  const auto task = beginSideTask(cadence == ClaudeCadence::manual ? SideTask::Kind::userRefresh
                                                                   : SideTask::Kind::refresh);
  task->done = std::move(done);
  task->missing = 1;  // this call itself, so that no inline answer ends the task too early
  ask(codex_.get(), ProviderID::codex, task, &SideTask::codex);
  ask(grok_.get(), ProviderID::grok, task, &SideTask::grok);
  task->sampledRead = claudeReadsThisCycle(preferences_.claudeTurnedOff());
  task->claude.ask = ++reading(ProviderID::claude).asked;
  const Date now = loop_.date();
  if (!task->sampledRead) {
    task->claude.snapshot = turnedOffClaudeSnapshot(now);
    task->claude.arrival = ++arrivals_;
  } else if (claude_ != nullptr) {
    ++task->missing;
    claude_->poll(claudeMinInterval(cadence, now), now, into(task, &SideTask::claude));
  }
  if (--task->missing == 0) {
    finish(task);
  }
}

void UsageStore::ask(Isolated<UsageProvider>* provider, ProviderID id,
                     const std::shared_ptr<SideTask>& task, Answer SideTask::* slot) {
  if (provider == nullptr) {
    return;
  }
  ++task->missing;
  ((*task).*slot).ask = ++reading(id).asked;
  const Date now = loop_.date();
  provider->ask([now](UsageProvider& reader) { return reader.fetch(now); }, into(task, slot));
}

std::function<void(ProviderSnapshot)> UsageStore::into(const std::shared_ptr<SideTask>& task,
                                                       Answer SideTask::* slot) {
  return [this, weak = std::weak_ptr(task), slot](ProviderSnapshot snapshot) {
    // The store alone owns its tasks: while one lives, so does the store.
    if (const auto waiting = weak.lock()) {
      ((*waiting).*slot).snapshot = std::move(snapshot);
      ((*waiting).*slot).arrival = ++arrivals_;
      if (--waiting->missing == 0) {
        finish(waiting);
      }
    }
  };
}

void UsageStore::finish(const std::shared_ptr<SideTask>& task) {
  endSideTasks([&](const SideTask& other) { return other.key == task->key; });
  if (!stillValid(task->generation)) {
    return;
  }
  applyClaude(task->claude, task->sampledRead);
  applyCodex(ProviderID::codex, task->codex);
  applyCodex(ProviderID::grok, task->grok);
  if (task->done) {
    task->done();
  }
}

void UsageStore::applyClaude(const Answer& answer, bool sampledRead) {
  Reading& claude = reading(ProviderID::claude);
  if (!answer.snapshot || answer.ask <= claude.floor || answer.arrival < claudeArrival_ ||
      !claudePublishesThisResult(sampledRead,
                                 claudeReadsThisCycle(preferences_.claudeTurnedOff()))) {
    return;
  }
  claudeArrival_ = answer.arrival;
  cleared_.erase(ProviderID::claude);
  if (sampledRead) {
    set(claudeYetFetched_, true);
  }
  set(claudeReadLatched_, claude_ != nullptr && claude_->isReadLatched());
  set(claude.published, answer.snapshot);
  claudeCadence_.observe(claudeCadenceSample(answer.snapshot));
}

void UsageStore::applyCodex(ProviderID provider, const Answer& answer) {
  Reading& current = reading(provider);
  // What is dropped here must not keep out an answer asked for before that could be published.
  if (!answer.snapshot || answer.ask <= current.floor ||
      isOlder(*answer.snapshot, current.published, loop_.date())) {
    return;
  }
  current.floor = answer.ask;
  cleared_.erase(provider);
  set(current.published, answer.snapshot);
}

template <class Question>
void UsageStore::readForWatcher(ProviderID provider, Question question, const Work& done) {
  auto& reader = provider == ProviderID::codex ? codex_ : grok_;
  if (!engineRuns_ || !reader) {
    done();
    return;
  }
  reader->ask(std::move(question), [this, provider, done, ask = ++reading(provider).asked,
                                    generation = engineGeneration_,
                                    alive = std::weak_ptr(alive_)](ProviderSnapshot snapshot) {
    if (alive.expired()) {
      return;
    }
    if (stillValid(generation)) {
      applyCodex(provider, {.ask = ask, .snapshot = std::move(snapshot)});
    }
    done();
  });
}

void UsageStore::codexFilesChanged(const WatchBatch& batch, const Work& done) {
  readForWatcher(
      ProviderID::codex,
      [batch, now = loop_.date()](UsageProvider& reader) {
        return batch.mustRescan ? reader.rescan(now) : reader.fetch(batch.paths, now);
      },
      done);
}

void UsageStore::grokLogChanged(const Work& done) {
  readForWatcher(
      ProviderID::grok, [now = loop_.date()](UsageProvider& reader) { return reader.fetch(now); },
      done);
}

void UsageStore::turnOffClaude() {
  preferences_.setClaudeTurnedOff(true);
  endSideTasks([](const SideTask& task) { return task.kind == SideTask::Kind::claudeRetry; });
  set(claudeReadLatched_, false);
  if (claude_ != nullptr) {
    claude_->stopAsking();
  }
  clearStoredUsage(providersClearedByClaudeOff());
}

void UsageStore::turnOnClaude() {
  preferences_.setClaudeTurnedOff(false);
  set(claudeYetFetched_, false);
  set(reading(ProviderID::claude).published, {});
  claudeCadence_.observe({});
  // A reading asked for before Claude was turned off must not come back now.
  reading(ProviderID::claude).floor = reading(ProviderID::claude).asked;
  stateChanged();
  retryClaudeRead();
}

void UsageStore::retryClaudeRead() {
  if (!engineRuns_ || claudeRetrying_ || preferences_.claudeTurnedOff() || claude_ == nullptr) {
    return;
  }
  const auto task = beginSideTask(SideTask::Kind::claudeRetry);
  task->sampledRead = true;
  task->claude.ask = ++reading(ProviderID::claude).asked;
  task->missing = 1;
  claude_->retryNow(into(task, &SideTask::claude));
}

void UsageStore::clearStoredUsage(const std::set<ProviderID>& providers) {
  forgetLastGood(providers);
  if (providers.contains(ProviderID::claude)) {
    claudeCadence_.observe({});
    set(reading(ProviderID::claude).published,
        claudeMenuSnapshot({}, preferences_.claudeTurnedOff(), loop_.date()));
  }
  purgeNetworkCache();
}

void UsageStore::purgeNetworkCache() const {
  purgeLegacyNetworkCache(surroundings_.caches, surroundings_.httpStorages, cache_.bundleID(),
                          {cache_.dir(), surroundings_.configuration});
}

void UsageStore::forgetLastGood(const std::set<ProviderID>& providers) {
  for (const ProviderID provider : providers) {
    // The file goes now, whatever the reader is busy with; if that is saving a reading, the file
    // goes again when the reader forgets.
    cache_.remove(provider);
    cleared_.insert(provider);
    if (provider == ProviderID::claude) {
      if (claude_ != nullptr) {
        claude_->forgetCache();
      }
      // An answer that waits for the other providers is one of the readings to forget; one that is
      // still out is new.
      for (const auto& [key, task] : sideTasks_) {
        task->claude.snapshot.reset();
      }
    } else {
      const auto& reader = provider == ProviderID::codex ? codex_ : grok_;
      if (reader) {
        reader->tell([](UsageProvider& it) { it.forgetCache(); });
      }
      // What is still being read may come from memory that is now forgotten.
      reading(provider).floor = reading(provider).asked;
    }
    set(reading(provider).published, {});
  }
}

const std::optional<ProviderSnapshot>& UsageStore::snapshot(ProviderID provider) const {
  static const std::optional<ProviderSnapshot> absent;
  const auto found = readings_.find(provider);
  return found == readings_.end() ? absent : found->second.published;
}

bool UsageStore::isPresent(ProviderID provider) const {
  return snapshot(provider).has_value();
}

std::vector<ProviderID> UsageStore::visibleProviders() const {
  return menuBarProviders(preferences_.providerOrder(),
                          [this](ProviderID provider) { return preferences_.isVisible(provider); });
}

std::vector<ProviderID> UsageStore::menuBarBars() const {
  return menuBarProviders(preferences_.providerOrder(), [this](ProviderID provider) {
    return preferences_.showsInMenuBarEffective(provider) && isPresent(provider);
  });
}

bool UsageStore::hasReader(ProviderID provider) const {
  switch (provider) {
    case ProviderID::claude:
      return claude_ != nullptr;
    case ProviderID::codex:
      return codex_ != nullptr;
    case ProviderID::grok:
      return grok_ != nullptr;
  }
  return false;
}

double UsageStore::claudeMinInterval(ClaudeCadence cadence, Date now) {
  switch (cadence) {
    case ClaudeCadence::background: {
      const double fraction = random_.fraction();
      return claudeCadence_.interval(now) * (fraction >= 1 ? 1.15 : 0.85 + 0.3 * fraction);
    }
    case ClaudeCadence::onDemand:
      return onDemandMinInterval;
    case ClaudeCadence::manual:
      return 0;
  }
  return backgroundMinInterval;
}

bool UsageStore::stillValid(int generation) const {
  return engineWorkStillValid(generation, engineGeneration_, engineRuns_);
}

UsageStore::Reading& UsageStore::reading(ProviderID provider) {
  return readings_[provider];
}

std::shared_ptr<UsageStore::SideTask> UsageStore::beginSideTask(SideTask::Kind kind) {
  auto task = std::make_shared<SideTask>();
  task->kind = kind;
  task->key = nextSideTask_++;
  task->generation = engineGeneration_;
  sideTasks_.emplace(task->key, task);
  updateTaskFlags();
  return task;
}

void UsageStore::endSideTasks(const std::function<bool(const SideTask&)>& which) {
  std::erase_if(sideTasks_, [&](const auto& entry) { return which(*entry.second); });
  updateTaskFlags();
}

void UsageStore::updateTaskFlags() {
  const auto running = [this](SideTask::Kind kind) {
    return std::ranges::any_of(sideTasks_,
                               [kind](const auto& entry) { return entry.second->kind == kind; });
  };
  set(refreshInFlight_, running(SideTask::Kind::userRefresh));
  set(claudeRetrying_, running(SideTask::Kind::claudeRetry));
}

template <class T>
void UsageStore::set(T& field, T value) {
  if (field != value) {
    field = std::move(value);
    stateChanged();
  }
}

void UsageStore::stateChanged() {
  if (std::exchange(notifyPosted_, true)) {
    return;
  }
  loop_.post([this, alive = std::weak_ptr(alive_)] {
    if (alive.expired()) {
      return;
    }
    notifyPosted_ = false;
    if (onStateChange) {
      onStateChange();
    }
  });
}

}  // namespace marigold
