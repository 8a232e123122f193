#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "ports/Defaults.h"

namespace marigold::test {

/// Preferences in memory that remember how they were stored.
class MemoryDefaults final : public Defaults {
 public:
  MemoryDefaults() = default;
  explicit MemoryDefaults(const std::vector<DefaultsChange>& stored) {
    MemoryDefaults::apply(stored);
    applies.clear();
  }

  [[nodiscard]] DefaultsValue value(std::string_view key) const override {
    const auto found = values.find(key);
    return found == values.end() ? DefaultsValue() : found->second;
  }
  void apply(const std::vector<DefaultsChange>& changes) override {
    applies.push_back(changes);
    for (const auto& [key, value] : changes) {
      if (std::holds_alternative<std::monostate>(value)) {
        values.erase(key);
      } else {
        values.insert_or_assign(key, value);
      }
    }
  }

  std::map<std::string, DefaultsValue, std::less<>> values;  ///< what is stored
  std::vector<std::vector<DefaultsChange>> applies;          ///< every call, in order
};

}  // namespace marigold::test
