// A line of the Grok log decodes into an activity line whose exhaustion can be shown, or into
// nothing.

#include <string>

#include "Fuzzed.h"
#include "grok/GrokRecords.h"

namespace marigold::fuzz {

void examine(std::string_view input) {
  const auto line = GrokActivityLine::decode(input);
  if (!line) {
    return;
  }
  const auto hours = line->rollingWindowHours();
  require(!hours || (*hours >= 1 && *hours <= 744));
  require(!line->isQuotaExhaustion() || input.contains("usage-exhausted") || input.contains('\\'));
  const Date captured = line->ts.value_or(Date{});
  const ProviderSnapshot snapshot =
      line->exhaustedSnapshot(std::nullopt, captured, captured + Seconds{60});
  require(snapshot.windows.size() == 1 && snapshot.windows[0].percent == 100);
  require(snapshot.windows[0].label == (hours ? std::to_string(*hours) + "h" : "Quota"));
  require(snapshot.windows[0].resetsAt == line->rollsOverAt(captured));
  require(snapshot.health == Health::ok());
}

}  // namespace marigold::fuzz
