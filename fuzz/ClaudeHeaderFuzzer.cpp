// Whatever a header says, requests are held off for 15 minutes to 2 hours. Input: the step, then
// the text of "Retry-After", a line feed and the text of a reset header.

#include <algorithm>
#include <string>

#include "Fuzzed.h"
#include "claude/ClaudePacing.h"
#include "claude/HTTPClassification.h"

namespace marigold::fuzz {

void examine(std::string_view input) {
  if (input.empty()) {
    return;
  }
  const std::string_view text = input.substr(1);
  const std::size_t end = std::min(text.find('\n'), text.size());
  const Date now = dateFromEpoch(1.8e9);
  const auto retryAfter = parseRetryAfter(text.substr(0, end));
  const auto resetAt = parseUnifiedReset(text.substr(end), now);
  require(!retryAfter || (*retryAfter >= Seconds{0} && *retryAfter <= Seconds{7200}));
  require(!resetAt || *resetAt >= now || *resetAt >= dateFromEpoch(1e7));
  require(!resetAt || *resetAt <= distantFuture);
  const Seconds delay =
      claudeCooldown(static_cast<int>(byteAt(input, 0)), retryAfter, resetAt, now);
  require(delay >= Seconds{900} && delay <= claudeCooldownCap);
  require(!retryAfter || delay >= *retryAfter);
}

}  // namespace marigold::fuzz
