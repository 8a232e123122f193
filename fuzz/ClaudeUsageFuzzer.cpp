// The body of a usage answer decodes into something that can be shown and cached, or into nothing.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <span>
#include <string>

#include "ClaudeUsage.h"
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
  const auto usage = ClaudeUsage::decode(std::string(input.begin(), input.end()));
  if (!usage) {
    return 0;
  }
  const ProviderSnapshot snapshot = usage->snapshot(Date{}, "max");
  std::set<std::string> labels;
  for (const UsageWindow& window : snapshot.windows) {
    require(window.percent >= 0 && window.percent <= 100);
    require(!window.label.empty() && labels.insert(lowercased(window.label)).second);
    require(!window.resetsAt ||
            (*window.resetsAt >= distantPast && *window.resetsAt <= distantFuture));
  }
  require(!snapshot.extraNote || snapshot.extraNote->size() <= 16);
  const auto verdict =
      claudePayloadVerdict(snapshot.isUsable(), usage->recognizedEnvelope, usage->rejectedValue());
  require((verdict == ClaudePayloadVerdict::usable) == snapshot.isUsable());
  require(usage->recognizedEnvelope || verdict == ClaudePayloadVerdict::unrecognized);

  const auto content = encodeCachedSnapshot(snapshot.cached());
  require(content.has_value());
  const auto cached = decodeCachedSnapshot(content.value_or("")).value_or(CachedSnapshot{});
  require(cached.windows.size() == snapshot.windows.size());
  return 0;
}
