#include "app/StoredStatus.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "UsageStore.h"
#include "codex/CodexProvider.h"
#include "grok/GrokProvider.h"
#include "model/DiskCache.h"

namespace marigold {

namespace {

// Keeps what the migrations decide to itself.
class UnstoredDefaults final : public Defaults {
 public:
  explicit UnstoredDefaults(const Defaults& stored) : stored_(stored) {}

  [[nodiscard]] DefaultsValue value(std::string_view key) const override {
    const auto changed = changes_.find(key);
    return changed != changes_.end() ? changed->second : stored_.value(key);
  }
  void apply(const std::vector<DefaultsChange>& changes) override {
    for (const auto& [key, value] : changes) {
      changes_.insert_or_assign(key, value);
    }
  }

 private:
  const Defaults& stored_;
  std::map<std::string, DefaultsValue, std::less<>> changes_;
};

std::optional<ProviderSnapshot> readingOf(ProviderID provider, const Surroundings& surroundings,
                                          const Preferences& chosen, Date now) {
  const DiskCache cache = DiskCache(surroundings).readOnly();
  switch (provider) {
    case ProviderID::claude:
      return coldStartClaudeSnapshot(cache.load(provider), chosen.claudeTurnedOff(), now);
    case ProviderID::codex:
      return CodexProvider(CodexPaths(surroundings), cache).fetch(now);
    case ProviderID::grok:
      return GrokProvider(GrokPaths(surroundings), cache).fetch(now);
  }
  return std::nullopt;
}

}  // namespace

StatusReport storedStatus(const Surroundings& surroundings, const Defaults& defaults,
                          DesktopTexts texts, const LocalTimeText& localTime, Date now) {
  UnstoredDefaults unstored(defaults);
  const Preferences chosen(unstored);
  std::vector<ProviderSnapshot> readings;
  for (const ProviderID provider : chosen.providerOrder()) {
    if (!chosen.isVisible(provider)) {
      continue;
    }
    if (const auto reading = readingOf(provider, surroundings, chosen, now)) {
      readings.push_back(worded(*reading, texts));
    }
  }
  return statusReport(readings, chosen, now, localTime);
}

}  // namespace marigold
