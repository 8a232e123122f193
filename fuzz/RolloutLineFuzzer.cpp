// A line of a rollout file decodes into something that can be shown and cached, or into nothing.

#include <string>

#include "Fuzzed.h"
#include "codex/CodexRecords.h"

namespace marigold::fuzz {

void examine(std::string_view input) {
  const auto line = CodexRolloutLine::decode(input);
  if (!line || !line->payload || !line->payload->rateLimits) {
    return;
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
  requireCached(snapshot);
}

}  // namespace marigold::fuzz
