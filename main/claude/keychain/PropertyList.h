#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace marigold {

/// A property list that this system did not write, in XML or binary form.
class PropertyList {
 public:
  /// Larger ones are refused. Those read here have a few hundred bytes.
  static constexpr std::size_t largest = 16384;

  /// Nothing when `bytes` hold no property list. Refused besides is a binary one in which values
  /// share a list or a dictionary: a few bytes of such a form can stand for millions of values.
  [[nodiscard]] static std::optional<PropertyList> parse(std::string_view bytes);

  /// The texts in the array that is the entry `key` of the dictionary; nothing when this is not a
  /// dictionary, or the entry not an array of texts only.
  [[nodiscard]] std::optional<std::vector<std::string>> texts(const std::string& key) const;

 private:
  using Root = std::unique_ptr<void, void (*)(void*)>;  // the library's own type

  explicit PropertyList(Root root) : root_(std::move(root)) {}
  Root root_;
};

}  // namespace marigold
