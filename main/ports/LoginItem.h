#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>

#include "base/Pinned.h"

namespace marigold {

/// Launching at login, as the system arranges it. This base stands in for a desktop that offers
/// none.
class LoginItem : public Pinned {
 public:
  enum class Status : std::uint8_t {
    enabled,           ///< the application is launched at login
    notRegistered,     ///< it is not
    requiresApproval,  ///< it is not until the user agrees in the system's settings
  };

  /// What the system has now.
  [[nodiscard]] virtual Status status() const { return Status::notRegistered; }
  /// Has the running program launched at login, wherever an older registration has it. An error is
  /// the reason in words for the user.
  [[nodiscard]] virtual std::expected<void, std::string> registerProgram() {
    return std::unexpected(unavailable);
  }
  [[nodiscard]] virtual std::expected<void, std::string> unregisterProgram() {
    return std::unexpected(unavailable);
  }
  /// Shows the system's settings in which the user can agree, where there are any.
  virtual void openSystemSettings() {}
  /// What the log calls the system's service.
  [[nodiscard]] virtual std::string_view service() const { return "SMAppService"; }

 private:
  static constexpr const char* unavailable = "this desktop offers none";
};

}  // namespace marigold
