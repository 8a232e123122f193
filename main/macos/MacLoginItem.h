#pragma once

#include <expected>
#include <string>

#include "ports/LoginItem.h"

namespace marigold {

/// The application's own entry among the system's login items.
class MacLoginItem final : public LoginItem {
 public:
  [[nodiscard]] Status status() const override;
  [[nodiscard]] std::expected<void, std::string> registerProgram() override;
  [[nodiscard]] std::expected<void, std::string> unregisterProgram() override;
  void openSystemSettings() override;
};

}  // namespace marigold
