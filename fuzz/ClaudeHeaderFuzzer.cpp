// Whatever a header says, requests are held off for 15 minutes to 2 hours. Input: the step, then
// the text of "Retry-After", a line feed and the text of a reset header.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "ClaudePacing.h"

namespace {

void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace marigold;
  if (size == 0) {
    return 0;
  }
  const std::span input(data, size);
  const std::string text(input.begin() + 1, input.end());
  const std::size_t end = std::min(text.find('\n'), text.size());
  const Date now = dateFromEpoch(1.8e9);
  const auto retryAfter = parseRetryAfter(text.substr(0, end));
  const auto resetAt = parseUnifiedReset(text.substr(end), now);
  require(!retryAfter || (*retryAfter >= 0 && *retryAfter <= 7200));
  require(!resetAt || *resetAt >= now || *resetAt >= dateFromEpoch(1e7));
  require(!resetAt || *resetAt <= distantFuture);
  const double delay = claudeCooldown(input[0], retryAfter, resetAt, now);
  require(delay >= 900 && delay <= claudeCooldownCap);
  require(!retryAfter || delay >= *retryAfter);
  return 0;
}
