#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "ports/Defaults.h"

namespace marigold::test {

/// Preferences in memory.
class MemoryDefaults final : public Defaults {
 public:
  explicit MemoryDefaults(const std::vector<DefaultsChange>& stored = {}) {
    for (const auto& [key, value] : stored) {
      values_.insert_or_assign(key, value);
    }
  }

  [[nodiscard]] DefaultsValue value(std::string_view key) const override {
    const auto found = values_.find(key);
    return found == values_.end() ? DefaultsValue() : found->second;
  }
  void apply(const std::vector<DefaultsChange>& changes) override {
    ++applies;
    for (const auto& [key, value] : changes) {
      values_.insert_or_assign(key, value);
    }
  }

  /// As another program would.
  void changeByOthers(const std::vector<DefaultsChange>& changes) {
    apply(changes);
    onChange();
  }

  int applies = 0;  ///< calls of apply()

 private:
  std::map<std::string, DefaultsValue, std::less<>> values_;
};

}  // namespace marigold::test
