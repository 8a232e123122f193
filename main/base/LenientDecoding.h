#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "base/JsonDocument.h"

// Decoding of data that this system does not control. One bad field costs that field only, one bad
// list item that item only.

namespace marigold {

/// A list item that may have failed to decode. `T::decode(JsonValue)` gives an optional T.
template <class T>
struct Lossy {
  std::optional<T> value;

  [[nodiscard]] static Lossy decode(JsonValue item) { return {T::decode(item)}; }
};

/// The items of the array `list` that decode, in their order; nothing when it is not an array.
template <class T>
[[nodiscard]] std::optional<std::vector<T>> decodeSurvivors(JsonValue list) {
  const auto items = list.list();
  if (!items) {
    return std::nullopt;
  }
  std::vector<T> survivors;
  for (const JsonValue& item : *items) {
    if (auto decoded = Lossy<T>::decode(item); decoded.value) {
      survivors.push_back(std::move(*decoded.value));
    }
  }
  return survivors;
}

/// A JSON number, else a text that `decimalNumber` reads.
[[nodiscard]] std::optional<double> numberOrText(JsonValue value);

/// True when `container` holds `key` with a value other than null.
[[nodiscard]] bool sentNonNull(std::string_view key, JsonValue container);

/// A percentage in [-1, 101] clamped into [0, 100]; anything else is absent. The tolerance of one
/// point absorbs a sender's rounding; further out it is garbage and must not look like a reading.
[[nodiscard]] std::optional<double> sanitizePercent(std::optional<double> value);

/// The percentage under `key`: a number or a numeric text, sanitized.
[[nodiscard]] std::optional<double> decodePercent(std::string_view key, JsonValue container);

/// The longest window length believed: 366 days.
inline constexpr std::int64_t longestWindowMinutes = 527040;

/// `minutes` when 1 to `longestWindowMinutes`.
[[nodiscard]] std::optional<std::int64_t> plausibleWindowMinutes(
    std::optional<std::int64_t> minutes);

}  // namespace marigold
