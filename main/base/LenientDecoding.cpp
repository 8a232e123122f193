#include "base/LenientDecoding.h"

#include <algorithm>
#include <cmath>

#include "base/AsciiText.h"

namespace marigold {

std::optional<double> numberOrText(JsonValue value) {
  if (const auto number = value.number()) {
    return number;
  }
  if (const auto text = value.text()) {
    return decimalNumber(*text);
  }
  return std::nullopt;
}

bool sentNonNull(std::string_view key, JsonValue container) {
  const JsonValue value = container[key];
  return !value.isAbsent() && !value.isNull();
}

std::optional<double> sanitizePercent(std::optional<double> value) {
  if (!value || !std::isfinite(*value) || *value > 101 || *value < -1) {
    return std::nullopt;
  }
  // Written so that -0.0 becomes 0.
  return *value <= 0 ? 0 : std::min(*value, 100.0);
}

std::optional<double> decodePercent(std::string_view key, JsonValue container) {
  return sanitizePercent(numberOrText(container[key]));
}

std::optional<std::int64_t> plausibleWindowMinutes(std::optional<std::int64_t> minutes) {
  if (!minutes || *minutes < 1 || *minutes > longestWindowMinutes) {
    return std::nullopt;
  }
  return minutes;
}

}  // namespace marigold
