#include "UsageStore.h"

#include <utility>

#include "model/LegacyNetworkCache.h"

namespace marigold {

namespace {

// Between the end of one periodic refresh and the start of the next, in seconds.
constexpr Seconds refreshPeriod{180};
// A refresh goes on without the answers it does not have after this time.
constexpr Seconds refreshPatience{30};

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

template <class Which>
void UsageStore::endSideTasks(const Which& which) {
  sideTasks_.end(which);
  updateTaskFlags();
}

UsageStore::UsageStore(Services services)
    : loop_(services.loop),
      attention_(services.attention),
      random_(services.random),
      log_(services.log),
      surroundings_(services.surroundings),
      cache_(services.surroundings),
      preferences_(services.defaults),
      login_(services.loginItem, services.log),
      claudeProvider_(services.claude),
      codexProvider_(loop_, services.eventStreams, std::move(services.codex),
                     [this](const WatchBatch& batch, const Work& done) {
                       filesChanged(ProviderID::codex, batch, done);
                     }),
      grokProvider_(loop_, services.eventStreams, std::move(services.grok),
                    [this](const WatchBatch& batch, const Work& done) {
                      filesChanged(ProviderID::grok, batch, done);
                    }) {
  preferences_.onChange = [this] { stateChanged(); };
  login_.onChange = [this] { stateChanged(); };
  claudeProvider_.onLateResult = lifetime_.guard([this](ProviderSnapshot snapshot) {
    if (engineRuns_) {
      answerTo(ProviderID::claude)(std::move(snapshot));
    }
  });
  preferences_.onClaudeSwitched = [this] {
    preferences_.claudeTurnedOff() ? turnOffClaude() : turnOnClaude();
  };
  const Date now = loop_.date();
  for (const ProviderID provider : allCases<ProviderID>) {
    const auto cached = cache_.load(provider);
    if (provider == ProviderID::claude) {
      put(provider, coldStartClaudeSnapshot(cached, preferences_.claudeTurnedOff(), now));
    } else if (cached) {
      put(provider, cached->restored(now));
    }
  }
  purgeLegacyNetworkCache(surroundings_);
}

UsageStore::~UsageStore() {
  // A read that was running while its provider was cleared may have saved once more.
  for (const auto& [provider, publication] : publications_) {
    if (publication.isCleared()) {
      cache_.remove(provider);
    }
  }
}

void UsageStore::start() {
  set(engineRuns_, true);
  ++engineGeneration_;
  observeAttention();
  runLoop();  // each refresh starts the watchers that are not there
}

void UsageStore::shutdown() {
  refreshTask_.cancel();
  codexProvider_.stopWatcher();
  grokProvider_.stopWatcher();
  endSideTasks([](const SideTask& /*task*/) { return true; });
  observers_.clear();
  set(engineRuns_, false);
}

void UsageStore::runLoop() {
  refreshOnce(ClaudeCadence::background,
              [this] { refreshTask_ = loop_.callAfter(refreshPeriod, [this] { runLoop(); }); });
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

void UsageStore::startWatcher() {
  codexProvider_.startWatcher();
  grokProvider_.startWatcher();
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
  startWatcher();
  const auto kind =
      cadence == ClaudeCadence::manual ? SideTask::Kind::userRefresh : SideTask::Kind::refresh;
  runTracked(kind, std::move(done), [&](const Task& task) {
    const Date now = loop_.date();
    task->patience = loop_.callAfter(refreshPatience, [this, weak = std::weak_ptr(task)] {
      if (const auto waiting = weak.lock()) {
        finish(waiting);
      }
    });
    for (const ProviderID provider : {ProviderID::codex, ProviderID::grok}) {
      // Nobody waits again for a read that others have given up; its answer is applied when it
      // comes.
      if (!source(provider).isOutFor(refreshPatience)) {
        source(provider).fetch(now, answerTo(provider, task));
      }
    }
    task->sampledRead = claudeReadsThisCycle(preferences_.claudeTurnedOff());
    auto claude = answerTo(ProviderID::claude, task);
    if (task->sampledRead) {
      claudeProvider_.poll(claudeMinInterval(cadence, now), loop_.now(), std::move(claude));
    } else {
      // Like every answer, not inline: what is still to be asked must not be missing then.
      loop_.post([claude = std::move(claude), now] { claude(turnedOffClaudeSnapshot(now)); });
    }
  });
}

void UsageStore::runTracked(SideTask::Kind kind, Work done,
                            const std::function<void(const Task&)>& work) {
  const Task task = sideTasks_.begin(kind, engineGeneration_, std::move(done));
  updateTaskFlags();
  work(task);
}

FileSource::Answer UsageStore::answerTo(ProviderID provider, const Task& task) {
  if (task) {
    task->missing.insert(provider);
  }
  return lifetime_.guard([this, provider, weak = std::weak_ptr(task),
                          generation = engineGeneration_, sampledRead = !task || task->sampledRead,
                          ask = publications_.at(provider).ask()](FileSource::Reading reading) {
    auto answer =
        publications_.at(provider).arrive(ask, std::move(reading.snapshot), reading.takesBack);
    if (const auto waiting = weak.lock()) {
      waiting->answer(provider) = std::move(answer);
      waiting->missing.erase(provider);
      if (waiting->missing.empty()) {
        finish(waiting);
      }
    } else if (stillValid(generation)) {
      apply(provider, answer, sampledRead);
    }
  });
}

void UsageStore::finish(const Task& task) {
  endSideTasks([&](const SideTask& other) { return &other == task.get(); });
  if (!stillValid(task->generation)) {
    return;
  }
  for (const ProviderID provider : allCases<ProviderID>) {
    if (const auto& answer = task->answer(provider)) {
      apply(provider, *answer, task->sampledRead);
    }
  }
  if (task->done) {
    task->done();
  }
}

void UsageStore::apply(ProviderID provider, const Answer& answer, bool sampledRead) {
  provider == ProviderID::claude ? applyClaude(answer, sampledRead) : applyCodex(provider, answer);
}

void UsageStore::applyClaude(const Answer& answer, bool sampledRead) {
  if (!claudePublishesThisResult(sampledRead,
                                 claudeReadsThisCycle(preferences_.claudeTurnedOff())) ||
      !offer(ProviderID::claude, answer)) {
    return;
  }
  if (sampledRead) {
    set(claudeYetFetched_, true);
  }
  set(claudeReadLatched_, claudeProvider_.isReadLatched());
  claudeCadence_.observe(claudeCadenceSample(answer.snapshot));
}

void UsageStore::applyCodex(ProviderID provider, const Answer& answer) {
  offer(provider, answer);
}

bool UsageStore::offer(ProviderID provider, const Answer& answer) {
  Publication& publication = publications_.at(provider);
  const auto before = publication.snapshot();
  const bool accepted = publication.offer(answer, loop_.date());
  if (publication.snapshot() != before) {
    stateChanged();
  }
  return accepted;
}

void UsageStore::put(ProviderID provider, std::optional<ProviderSnapshot> snapshot) {
  Publication& publication = publications_.at(provider);
  if (publication.snapshot() != snapshot) {
    publication.put(std::move(snapshot));
    stateChanged();
  }
}

void UsageStore::filesChanged(ProviderID provider, const WatchBatch& batch, const Work& done) {
  if (!engineRuns_) {
    done();
    return;
  }
  source(provider).fetch(batch, loop_.date(),
                         [done, publish = answerTo(provider)](const FileSource::Reading& reading) {
                           publish(reading);
                           done();
                         });
}

void UsageStore::turnOffClaude() {
  preferences_.setClaudeTurnedOff(true);
  endSideTasks([](const SideTask& task) { return task.kind == SideTask::Kind::claudeRetry; });
  set(claudeReadLatched_, false);
  claudeProvider_.stopAsking();
  clearStoredUsage(providersClearedByClaudeOff());
}

void UsageStore::turnOnClaude() {
  preferences_.setClaudeTurnedOff(false);
  set(claudeYetFetched_, false);
  put(ProviderID::claude, {});
  claudeCadence_.observe({});
  // A reading asked for before Claude was turned off must not come back now.
  publications_.at(ProviderID::claude).dropAsked();
  retryClaudeRead();
}

void UsageStore::retryClaudeRead() {
  if (!engineRuns_ || claudeRetrying_ || preferences_.claudeTurnedOff()) {
    return;
  }
  runTracked(SideTask::Kind::claudeRetry, {}, [this](const Task& task) {
    task->sampledRead = true;
    claudeProvider_.retryNow(answerTo(ProviderID::claude, task));
  });
}

void UsageStore::clearStoredUsage(const std::set<ProviderID>& providers) {
  forgetLastGood(providers);
  if (providers.contains(ProviderID::claude)) {
    claudeCadence_.observe({});
    put(ProviderID::claude, claudeMenuSnapshot({}, preferences_.claudeTurnedOff(), loop_.date()));
  }
  purgeLegacyNetworkCache(surroundings_);
}

void UsageStore::forgetLastGood(const std::set<ProviderID>& providers) {
  for (const ProviderID provider : providers) {
    // The file goes now, whatever the reader is busy with; if that is saving a reading, the file
    // goes again when the reader forgets.
    cache_.remove(provider);
    // An answer that waits for other providers is one of the readings to forget.
    bool isDue = sideTasks_.forget(provider);
    put(provider, {});
    publications_.at(provider).clear();
    if (provider == ProviderID::claude) {
      claudeProvider_.forgetCache();
      // What is still out is new: the provider has seen to that.
      if (isDue && claudeReadsThisCycle(preferences_.claudeTurnedOff())) {
        claudeProvider_.poll(onDemandMinInterval, loop_.now(), answerTo(provider));
      }
    } else {
      // What is still out may come from memory that is now forgotten.
      publications_.at(provider).dropAsked();
      isDue = isDue || source(provider).isOutFor(Seconds{0});
      source(provider).forgetCache();
      if (isDue && engineRuns_) {
        source(provider).fetch(loop_.date(), answerTo(provider));
      }
    }
  }
}

const std::optional<ProviderSnapshot>& UsageStore::snapshot(ProviderID provider) const {
  return publications_.at(provider).snapshot();
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

Seconds UsageStore::claudeMinInterval(ClaudeCadence cadence, Date now) {
  switch (cadence) {
    case ClaudeCadence::background: {
      const double fraction = random_.fraction();
      return claudeCadence_.interval(now) * (fraction >= 1 ? 1.15 : 0.85 + 0.3 * fraction);
    }
    case ClaudeCadence::onDemand:
      return onDemandMinInterval;
    case ClaudeCadence::manual:
      return Seconds{0};
  }
  return backgroundMinInterval;
}

bool UsageStore::stillValid(int generation) const {
  return engineWorkStillValid(generation, engineGeneration_, engineRuns_);
}

FileSource& UsageStore::source(ProviderID provider) {
  return provider == ProviderID::codex ? codexProvider_ : grokProvider_;
}

void UsageStore::updateTaskFlags() {
  set(refreshInFlight_, sideTasks_.has(SideTask::Kind::userRefresh));
  set(claudeRetrying_, sideTasks_.has(SideTask::Kind::claudeRetry));
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
  loop_.post(lifetime_.guard([this] {
    notifyPosted_ = false;
    if (onStateChange) {
      onStateChange();
    }
  }));
}

}  // namespace marigold
