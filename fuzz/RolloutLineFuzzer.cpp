// A line of a rollout file decodes into something that can be shown and cached, or into nothing.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "CodexRecords.h"
#include "DiskCache.h"

namespace {

void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace marigold;
  const std::span input(data, size);
  const std::string text(input.begin(), input.end());
  const auto line = CodexRolloutLine::decode(text);
  if (!line || !line->payload || !line->payload->rateLimits) {
    return 0;
  }
  const CodexRateLimits& limits = *line->payload->rateLimits;
  const Date captured = line->timestamp.value_or(Date{});
  const ProviderSnapshot snapshot = limits.snapshot(captured, captured + Seconds{60});
  require(snapshot.isUsable() == limits.carriesWindow());
  require(snapshot.windows.size() <= 2);
  for (const UsageWindow& window : snapshot.windows) {
    require(window.percent >= 0 && window.percent <= 100);
    require(!window.label.empty());
    require(!window.resetsAt ||
            (*window.resetsAt >= distantPast && *window.resetsAt <= distantFuture));
  }
  require(!snapshot.planLabel || snapshot.planLabel->starts_with("Codex "));
  require(!snapshot.extraNote || snapshot.extraNote->starts_with("Rate resets available"));
  require(snapshot.health == Health::ok());

  const auto content = encodeCachedSnapshot(snapshot.cached());
  require(content.has_value());
  const auto cached = decodeCachedSnapshot(content.value_or("")).value_or(CachedSnapshot{});
  require(cached.windows.size() == snapshot.windows.size());
  require(cached.planLabel == snapshot.planLabel && cached.extraNote == snapshot.extraNote);
  return 0;
}
