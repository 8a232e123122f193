#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Secret.h"
#include "Time.h"

// Reading of JSON that this system does not control. One bad field costs that field only, one bad
// list item that item only: every reader gives an optional and never fails otherwise.

namespace marigold {

struct JsonTree;

/// One value inside a parsed document, or the absence of one. A view: valid while its JsonDocument
/// lives.
class JsonValue {
 public:
  JsonValue() = default;
  JsonValue(const JsonTree& tree, std::size_t node) : tree_(&tree), node_(node) {}

  /// The member `key` of an object; absent for a missing key and for anything but an object. Of
  /// duplicate keys the first counts.
  [[nodiscard]] JsonValue operator[](std::string_view key) const;

  [[nodiscard]] bool isAbsent() const { return tree_ == nullptr; }
  [[nodiscard]] bool isNull() const;

  [[nodiscard]] std::optional<std::string> text() const;
  /// A text, of which no copy stays behind once the document is gone too.
  [[nodiscard]] std::optional<Secret> secret() const;
  /// A finite number as a 64-bit float.
  [[nodiscard]] std::optional<double> number() const;
  /// A number without fractional part in the signed 64-bit range; 300, 300.0 and 3e2 are the same.
  [[nodiscard]] std::optional<std::int64_t> wholeNumber() const;
  [[nodiscard]] std::optional<bool> flag() const;
  /// This value when it is an object.
  [[nodiscard]] std::optional<JsonValue> object() const;
  /// The items of an array.
  [[nodiscard]] std::optional<std::vector<JsonValue>> list() const;
  /// The members of an object, in their order, duplicates included.
  [[nodiscard]] std::optional<std::vector<std::pair<std::string, JsonValue>>> members() const;
  /// A text in a form that `ISODate::parse` reads.
  [[nodiscard]] std::optional<Date> date() const;
  /// This value as a JSON text without blanks, numbers as they were sent. Null when absent.
  [[nodiscard]] std::string json() const;

 private:
  const JsonTree* tree_ = nullptr;
  std::size_t node_ = 0;
};

/// A parsed JSON text (UTF-8). Nesting costs memory, never stack. A broken escape or a byte that is
/// not UTF-8 fails the whole text; a number too large for its type costs that number only. Its
/// memory is overwritten when it goes, except for keys and texts given out as such and numbers.
class JsonDocument {
 public:
  /// Nothing unless `text` is one JSON object.
  [[nodiscard]] static std::optional<JsonDocument> parseObject(std::string_view text);

  JsonDocument(JsonDocument&&) noexcept;
  JsonDocument& operator=(JsonDocument&&) noexcept;
  JsonDocument(const JsonDocument&) = delete;
  JsonDocument& operator=(const JsonDocument&) = delete;
  ~JsonDocument();

  [[nodiscard]] JsonValue root() const;

 private:
  explicit JsonDocument(std::unique_ptr<JsonTree> tree);
  std::unique_ptr<JsonTree> tree_;
};

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

/// ISO 8601 internet date-times: "2026-06-12T13:40:42Z" or with an offset such as "+02:00".
struct ISODate {
  /// With fractional seconds (any number of digits).
  [[nodiscard]] static std::optional<Date> withFrac(std::string_view text);
  /// Without.
  [[nodiscard]] static std::optional<Date> plain(std::string_view text);
  /// `withFrac`, else `plain`; absent and empty texts give no date.
  [[nodiscard]] static std::optional<Date> parse(std::optional<std::string_view> text);
};

/// The whole of `text` as a decimal number ("16", "-1.5", "1e3"): no blanks, nothing behind it.
/// Independent of the locale. May be infinite or not a number when the text says so.
[[nodiscard]] std::optional<double> decimalNumber(std::string_view text);

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
