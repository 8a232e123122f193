#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "base/Pinned.h"

namespace marigold {

/// A stored preference: absent, a boolean or a text.
using DefaultsValue = std::variant<std::monostate, bool, std::string>;
using DefaultsChange = std::pair<std::string, DefaultsValue>;

/// The user's stored preferences: typed values under flat keys. People and other programs may
/// change them at any time.
class Defaults : public Pinned {
 public:
  /// Called on the main loop after others changed what is stored.
  std::function<void()> onChange;

  /// The value under `key`; absent also when something other than a boolean or a text is stored.
  [[nodiscard]] virtual DefaultsValue value(std::string_view key) const = 0;

  /// Stores all changes together and nothing else, an absent value removing its key. What is read
  /// next is the new value even if storing failed.
  virtual void apply(const std::vector<DefaultsChange>& changes) = 0;

  void set(std::string key, DefaultsValue value) { apply({{std::move(key), std::move(value)}}); }
  [[nodiscard]] std::optional<bool> flag(std::string_view key) const {
    const DefaultsValue stored = value(key);
    const auto* held = std::get_if<bool>(&stored);
    return held != nullptr ? std::optional(*held) : std::nullopt;
  }
  [[nodiscard]] std::optional<std::string> text(std::string_view key) const {
    const DefaultsValue stored = value(key);
    const auto* held = std::get_if<std::string>(&stored);
    return held != nullptr ? std::optional(*held) : std::nullopt;
  }
};

}  // namespace marigold
