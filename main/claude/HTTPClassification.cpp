#include "claude/HTTPClassification.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "base/AsciiText.h"

namespace marigold {

namespace {

// A reset header's value from here on is a time, not a length of time: 115 days are no window.
constexpr double firstAbsoluteReset = 1e7;

}  // namespace

HTTPClassification classify(int status, std::optional<std::string_view> retryAfter) {
  using Kind = HTTPClassification::Kind;
  if (status >= 200 && status <= 299) {
    return {.kind = Kind::ok, .retryAfter = {}};
  }
  if (status == 401 || status == 403) {
    return {.kind = Kind::unauthorized, .retryAfter = {}};
  }
  return {.kind = status == 429 ? Kind::throttled : Kind::serverError,
          .retryAfter = parseRetryAfter(retryAfter)};
}

std::optional<std::chrono::seconds> parseRetryAfter(std::optional<std::string_view> text) {
  std::string_view digits = trimmed(text.value_or(""));
  const bool isNegative = digits.starts_with('-');
  if (isNegative || digits.starts_with('+')) {
    digits.remove_prefix(1);
  }
  if (digits.empty() || leadingDigits(digits) != digits) {
    return std::nullopt;
  }
  std::int64_t seconds = INT64_MAX;  // stays where there are more digits than it can hold
  std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  if (isNegative && seconds != 0) {
    return std::nullopt;
  }
  return std::chrono::seconds{std::min<std::int64_t>(seconds, 7200)};
}

std::optional<Date> parseUnifiedReset(std::optional<std::string_view> text, Date now) {
  const auto value = decimalNumber(trimmed(text.value_or("")));
  if (!value || !std::isfinite(*value) || *value < 0) {
    return std::nullopt;
  }
  return *value >= firstAbsoluteReset ? dateFromEpoch(*value) : now + Seconds{*value};
}

}  // namespace marigold
