// The body of a usage answer decodes into something that can be shown and cached, or into nothing.

#include <set>
#include <string>

#include "Fuzzed.h"
#include "base/AsciiText.h"
#include "claude/ClaudeUsage.h"

namespace marigold::fuzz {

void examine(std::string_view input) {
  const auto usage = ClaudeUsage::decode(input);
  if (!usage) {
    return;
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
  requireCached(snapshot);
}

}  // namespace marigold::fuzz
