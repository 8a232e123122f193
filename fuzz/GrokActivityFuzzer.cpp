// A line of the Grok log decodes into an activity line whose exhaustion can be shown, or into
// nothing.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "GrokRecords.h"

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
  const auto line = GrokActivityLine::decode(text);
  if (!line) {
    return 0;
  }
  const auto hours = line->rollingWindowHours();
  require(!hours || (*hours >= 1 && *hours <= 744));
  require(!line->isQuotaExhaustion() || text.find("usage-exhausted") != std::string::npos ||
          text.find('\\') != std::string::npos);
  const Date captured = line->ts.value_or(Date{});
  const ProviderSnapshot snapshot =
      line->exhaustedSnapshot(std::nullopt, captured, captured + Seconds{60});
  require(snapshot.windows.size() == 1 && snapshot.windows[0].percent == 100);
  require(snapshot.windows[0].label == (hours ? std::to_string(*hours) + "h" : "Quota"));
  require(snapshot.windows[0].resetsAt == line->rollsOverAt(captured));
  require(snapshot.health == Health::ok());
  return 0;
}
