#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "UsageStore.h"
#include "support/ManualEventLoop.h"
#include "support/MemoryDefaults.h"
#include "support/RecordingLog.h"
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
  std::vector<double> polls;
  std::vector<Answer> waiting;
  int retries = 0;
  int forgets = 0;
  bool latched = false;

  void poll(double minInterval, Date /*now*/, Answer answer) override {
    polls.push_back(minInterval);
    waiting.push_back(std::move(answer));
  }
  void retryNow(Answer answer) override {
    ++retries;
    waiting.push_back(std::move(answer));
  }
  [[nodiscard]] bool isReadLatched() const override { return latched; }
  void resetBackoff() override {}
  void stopAsking() override {}
  void forgetCache() override { ++forgets; }

  /// Answers the question at `index`, or drops nothing when there is none.
  void reply(std::size_t index, ProviderSnapshot snapshot) {
    if (index < waiting.size()) {
      const Answer answer = std::move(waiting[index]);
      waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(index));
      answer(std::move(snapshot));
    }
  }
};

/// A registration or a stream: what ends when it is destroyed is what `held` stands for.
template <class Port>
class Held final : public Port {
 public:
  explicit Held(std::shared_ptr<void> held) : held_(std::move(held)) {}

 private:
  std::shared_ptr<void> held_;
};

/// File-change notification driven by the test.
class ScriptedEventStreams final : public EventStreamSource {
 public:
  std::unique_ptr<EventStream> open(const std::string& path, Seconds /*latency*/,
                                    Callback callback) override {
    auto shared = std::make_shared<Callback>(std::move(callback));
    open_[path] = shared;
    return std::make_unique<Held<EventStream>>(std::move(shared));
  }
  [[nodiscard]] bool watches(const std::string& path) { return !open_[path].expired(); }
  void deliver(const std::string& path, const std::vector<FileEvent>& events) {
    if (const auto callback = open_[path].lock()) {
      (*callback)(events);
    }
  }

 private:
  std::map<std::string, std::weak_ptr<Callback>> open_;
};

/// Attention driven by the test.
class ScriptedAttention final : public Attention {
 public:
  std::unique_ptr<AttentionObserver> observe(AttentionEvent event,
                                             std::function<void()> callback) override {
    auto shared = std::make_shared<std::function<void()>>(std::move(callback));
    observers_.emplace_back(event, shared);
    return std::make_unique<Held<AttentionObserver>>(std::move(shared));
  }
  /// How many were told.
  int tell(AttentionEvent event) {
    int told = 0;
    for (const auto& [registered, callback] : std::vector(observers_)) {
      if (const auto alive = callback.lock(); alive && registered == event) {
        (*alive)();
        ++told;
      }
    }
    return told;
  }

 private:
  std::vector<std::pair<AttentionEvent, std::weak_ptr<std::function<void()>>>> observers_;
};

class FixedRandom final : public RandomSource {
 public:
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
  ScriptedClaude claude;
  ScriptedProvider* codex = nullptr;
  ScriptedProvider* grok = nullptr;
  int notified = 0;
  std::unique_ptr<UsageStore> store;

  StoreFixture() {
    directory.write("sessions/.keep", "");
    directory.write("logs/.keep", "");
  }

  void makeStore(ClaudeReader* claudeReader = nullptr) {
    auto codexProvider = std::make_unique<ScriptedProvider>();
    auto grokProvider = std::make_unique<ScriptedProvider>();
    codex = codexProvider.get();
    grok = grokProvider.get();
    codex->answer = [](Date now) { return reading(ProviderID::codex, 10, now); };
    grok->answer = [](Date now) { return reading(ProviderID::grok, 20, now); };
    store = std::make_unique<UsageStore>(UsageStore::Services{
        .loop = loop,
        .defaults = defaults,
        .eventStreams = streams,
        .attention = attention,
        .random = random,
        .log = log,
        .surroundings = surroundings,
        .claude = claudeReader != nullptr ? claudeReader : &claude,
        .codex =
            std::make_unique<Isolated<UsageProvider>>(codexWorker, loop, std::move(codexProvider)),
        .grok =
            std::make_unique<Isolated<UsageProvider>>(grokWorker, loop, std::move(grokProvider)),
        .codexSessionsDir = sessions,
        .grokLogsDir = logs});
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
