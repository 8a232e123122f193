// A line of the Grok log decodes into a billing line whose reading can be shown and cached, or into
// nothing.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "DiskCache.h"
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
  const auto line = GrokBillingLine::decode(std::string(input.begin(), input.end()));
  if (!line) {
    return 0;
  }
  const Date captured = line->ts.value_or(Date{});
  const ProviderSnapshot snapshot = line->snapshot(captured, captured + Seconds{60});
  require(snapshot.windows.size() == (line->hasCreditPercent() ? 1 : 0));
  for (const UsageWindow& window : snapshot.windows) {
    require(window.label == "Weekly" && window.percent >= 0 && window.percent <= 100);
  }
  require(!snapshot.planLabel || snapshot.planLabel->starts_with("Grok "));
  require(snapshot.health == Health::ok());

  const auto content = encodeCachedSnapshot(snapshot.cached());
  require(content.has_value());
  const auto cached = decodeCachedSnapshot(content.value_or("")).value_or(CachedSnapshot{});
  require(cached.windows.size() == snapshot.windows.size());
  require(cached.planLabel == snapshot.planLabel);
  return 0;
}
