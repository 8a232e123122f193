#pragma once

#include "UsageStore.h"
#include "support/ManualEventLoop.h"
#include "support/SimplePorts.h"
#include "support/TemporaryDirectory.h"

namespace marigold::test {

/// A usable reading, told apart by its note.
inline ProviderSnapshot reading(ProviderID provider, double percent, Date capturedAt,
                                std::string note = {}) {
  return {.provider = provider,
          .windows = {{.label = "5h", .percent = percent}},
          .capturedAt = capturedAt,
          .extraNote = std::move(note)};
}

/// A provider whose next answers a test writes down.
class ScriptedProvider final : public UsageProvider {
 public:
  /// What the provider finds whenever it looks.
  std::function<ProviderSnapshot(Date)> answer;
  std::vector<std::string> calls;

  ProviderSnapshot fetch(Date now) override { return called("fetch", now); }
  ProviderSnapshot rescan(Date now) override { return called("rescan", now); }
  ProviderSnapshot fetch(const std::set<std::string>& changed, Date now) override {
    return called("changed " + std::to_string(changed.size()), now);
  }
  void forgetCache() override { calls.emplace_back("forget"); }

 private:
  ProviderSnapshot called(std::string call, Date now) {
    calls.push_back(std::move(call));
    return answer(now);
  }
};

/// A Claude reader that answers when the test says so.
class ScriptedClaude final : public ClaudeReader {
 public:
  std::vector<Seconds> polls;
  std::vector<Answer> waiting;
  int retries = 0;
  int forgets = 0;
  int stops = 0;
  bool latched = false;

  void poll(Seconds minInterval, Instant /*now*/, Answer answer) override {
    polls.push_back(minInterval);
    waiting.push_back(std::move(answer));
  }
  void retryNow(Answer answer) override {
    ++retries;
    waiting.push_back(std::move(answer));
  }
  [[nodiscard]] bool isReadLatched() const override { return latched; }
  void stopAsking() override { ++stops; }
  void forgetCache() override { ++forgets; }

  /// Answers the question at `index`, or drops nothing when there is none.
  void reply(std::size_t index, ProviderSnapshot snapshot) {
    if (index < waiting.size()) {
      const auto asked = waiting.begin() + static_cast<std::ptrdiff_t>(index);
      const Answer answer = std::move(*asked);
      waiting.erase(asked);
      answer(std::move(snapshot));
    }
  }
  /// Answers every question.
  void replyAll(const ProviderSnapshot& snapshot) {
    while (!waiting.empty()) {
      reply(0, snapshot);
    }
  }
};

/// Callbacks under keys, each called as long as what `add` gave for it lives.
template <class Port, class Key, class... Told>
struct Registry {
  using Callback = std::function<void(Told...)>;
  struct Held final : Port {
    std::shared_ptr<Callback> callback;
  };
  std::vector<std::pair<Key, std::weak_ptr<Callback>>> entries;

  std::unique_ptr<Port> add(const Key& key, Callback callback) {
    std::erase_if(entries, [](const auto& entry) { return entry.second.expired(); });
    auto held = std::make_unique<Held>();
    held->callback = std::make_shared<Callback>(std::move(callback));
    entries.emplace_back(key, held->callback);
    return held;
  }
  /// How many were told.
  int tell(const Key& key, Told... told) {
    int count = 0;
    for (const auto& [registered, callback] : std::vector(entries)) {
      if (const auto alive = callback.lock(); alive && registered == key) {
        (*alive)(told...);
        ++count;
      }
    }
    return count;
  }
};

/// File-change notification driven by the test.
struct ScriptedEventStreams final : EventStreamSource {
  bool refuses = false;
  Registry<EventStream, std::string, const std::vector<FileEvent>&> streams;
  std::unique_ptr<EventStream> open(const std::string& path, Seconds, Callback callback) override {
    return refuses ? nullptr : streams.add(path, std::move(callback));
  }
  /// How many streams got them.
  int deliver(const std::string& path, const std::vector<FileEvent>& events) {
    return streams.tell(path, events);
  }
};

/// Attention driven by the test.
struct ScriptedAttention final : Attention {
  Registry<AttentionObserver, AttentionEvent> observers;
  std::unique_ptr<AttentionObserver> observe(AttentionEvent event,
                                             std::function<void()> callback) override {
    return observers.add(event, std::move(callback));
  }
  int tell(AttentionEvent event) { return observers.tell(event); }
};

/// Launching at login in the test's hands.
struct ScriptedLoginItem final : LoginItem {
  Status now = Status::notRegistered;
  Status registered = Status::enabled;  ///< what registering leads to
  std::string refusal;                  ///< why it is refused, when it is
  std::vector<std::string> asked;

  [[nodiscard]] Status status() const override { return now; }
  std::expected<void, std::string> registerProgram() override {
    return become("register", registered);
  }
  std::expected<void, std::string> unregisterProgram() override {
    return become("unregister", Status::notRegistered);
  }
  void openSystemSettings() override { asked.emplace_back("settings"); }

 private:
  std::expected<void, std::string> become(const char* what, Status next) {
    asked.emplace_back(what);
    if (!refusal.empty()) {
      return std::unexpected(refusal);
    }
    now = next;
    return {};
  }
};

struct FixedRandom final : RandomSource {
  double value = 0.5;
  double fraction() override { return value; }
};

/// A store over scripted surroundings, in virtual time. The workers are loops of their own, so that
/// a test decides how far each has come.
struct StoreFixture {
  TemporaryDirectory directory;
  std::string sessions = directory.path() + "/sessions";
  std::string logs = directory.path() + "/logs";
  Surroundings surroundings{.home = directory.path(),
                            .caches = directory.path() + "/caches",
                            .httpStorages = directory.path() + "/http",
                            .bundleIdentifier = "test.marigold",
                            .environment = {{"MARIGOLD_CACHE_DIR", directory.path() + "/cache"}}};
  ManualEventLoop loop, codexWorker, grokWorker;
  MemoryDefaults defaults;
  ScriptedEventStreams streams;
  ScriptedAttention attention;
  FixedRandom random;
  RecordingLog log;
  ScriptedLoginItem loginItem;
  ScriptedClaude claude;
  ScriptedProvider* codex = nullptr;
  ScriptedProvider* grok = nullptr;
  int notified = 0;
  std::unique_ptr<UsageStore> store;

  void makeStore() {
    auto codexProvider = std::make_unique<ScriptedProvider>();
    auto grokProvider = std::make_unique<ScriptedProvider>();
    codex = codexProvider.get();
    grok = grokProvider.get();
    codex->answer = [](Date now) { return reading(ProviderID::codex, 10, now); };
    grok->answer = [](Date now) { return reading(ProviderID::grok, 20, now); };
    FileSource::Origin codexFiles{codexWorker, std::move(codexProvider), sessions};
    FileSource::Origin grokFiles{grokWorker, std::move(grokProvider), logs};
    store = std::make_unique<UsageStore>(
        UsageStore::Services{loop, defaults, streams, attention, random, log, surroundings,
                             loginItem, claude, std::move(codexFiles), std::move(grokFiles)});
    store->onStateChange = [this] { ++notified; };
  }

  /// Lets the file readers and the main loop finish what they have.
  void settle() {
    while (codexWorker.step() || grokWorker.step() || loop.step()) {
    }
  }
  /// Moves time on; the readers answer at once.
  void advance(double seconds) {
    settle();
    for (int quarters = static_cast<int>(seconds * 4); quarters > 0; --quarters) {
      loop.advance(Seconds{0.25});
      settle();
    }
  }
};

}  // namespace marigold::test
