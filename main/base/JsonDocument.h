#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Secret.h"
#include "base/Time.h"

// Reading of JSON that this system does not control: every reader gives an optional and never fails
// otherwise.

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
  /// A text; of a secret document no copy of it stays behind.
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

/// A parsed JSON text (UTF-8). Nesting costs memory, never stack. A byte that is not UTF-8
/// or a broken escape fails the whole text, but for one half of a character without the other,
/// which costs its text or member only, like a number too large for its type.
class JsonDocument {
 public:
  /// Nothing unless `text` is one JSON object.
  [[nodiscard]] static std::optional<JsonDocument> parseObject(std::string_view text);
  /// The same, and all that is kept of `text`, but for numbers, lies in a `Secret`.
  [[nodiscard]] static std::optional<JsonDocument> parseSecretObject(std::string_view text);

  JsonDocument(JsonDocument&&) noexcept;
  JsonDocument& operator=(JsonDocument&&) noexcept;
  JsonDocument(const JsonDocument&) = delete;
  JsonDocument& operator=(const JsonDocument&) = delete;
  ~JsonDocument();

  [[nodiscard]] JsonValue root() const;

 private:
  explicit JsonDocument(std::unique_ptr<JsonTree> tree);
  [[nodiscard]] static std::optional<JsonDocument> parse(std::string_view text, bool isSecret);

  std::unique_ptr<JsonTree> tree_;
};

}  // namespace marigold
