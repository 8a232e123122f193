// A line of the Grok log decodes into a billing line whose reading can be shown and cached, or into
// nothing.

#include <string>

#include "Fuzzed.h"
#include "grok/GrokRecords.h"

namespace marigold::fuzz {

void examine(std::string_view input) {
  const auto line = GrokBillingLine::decode(input);
  if (!line) {
    return;
  }
  const Date captured = line->ts.value_or(Date{});
  const ProviderSnapshot snapshot = line->snapshot(captured, captured + Seconds{60});
  require(snapshot.windows.size() == (line->hasCreditPercent() ? 1 : 0));
  for (const UsageWindow& window : snapshot.windows) {
    require(window.label == "Weekly" && window.percent >= 0 && window.percent <= 100);
  }
  require(!snapshot.planLabel || snapshot.planLabel->starts_with("Grok "));
  require(snapshot.health == Health::ok());
  requireCached(snapshot);
}

}  // namespace marigold::fuzz
