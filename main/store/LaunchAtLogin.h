#pragma once

#include <functional>
#include <optional>
#include <string>

#include "ports/Log.h"
#include "ports/LoginItem.h"

namespace marigold {

/// Whether the application is launched at login, as last read from the system, which alone keeps
/// it: the user may change it there at any time.
class LaunchAtLogin {
 public:
  /// The references must outlive this object.
  LaunchAtLogin(LoginItem& item, Log& log) : item_(item), log_(log) {}

  /// Called after anything below changed.
  std::function<void()> onChange;

  /// Turns it on or off. Where the system first wants the user to agree, shows its settings.
  void setLaunchAtLogin(bool on);
  /// Reads the system's state again.
  void refreshLoginItemStatus();
  /// Registers again when it is on, so that a moved or updated program stays registered.
  void reregisterLoginItemIfEnabled();
  void openLoginItemSettings() { item_.openSystemSettings(); }

  [[nodiscard]] bool launchAtLogin() const noexcept { return seen_.status == Status::enabled; }
  [[nodiscard]] bool requiresApproval() const noexcept {
    return seen_.status == Status::requiresApproval;
  }
  /// Why it could not be turned on or off, for the user; until that is tried again or done
  /// elsewhere.
  [[nodiscard]] const std::optional<std::string>& launchAtLoginError() const noexcept {
    return seen_.error;
  }

 private:
  using Status = LoginItem::Status;
  struct Seen {
    Status status = Status::notRegistered;
    std::optional<std::string> error;

    bool operator==(const Seen&) const = default;
  };

  std::expected<void, std::string> ask(bool on);
  void see(Seen seen);

  LoginItem& item_;
  Log& log_;
  Seen seen_;
};

}  // namespace marigold
