#include "store/LaunchAtLogin.h"

#include <utility>

namespace marigold {

void LaunchAtLogin::setLaunchAtLogin(bool on) {
  Seen seen;
  if (const auto done = ask(on); !done) {
    seen.error = std::string("Could not ") + (on ? "turn on" : "turn off") +
                 " launch at login: " + done.error();
  }
  seen.status = item_.status();
  if (seen.status == Status::requiresApproval) {
    item_.openSystemSettings();
  }
  see(std::move(seen));
}

void LaunchAtLogin::refreshLoginItemStatus() {
  const Status status = item_.status();
  see({.status = status, .error = status == seen_.status ? seen_.error : std::nullopt});
}

void LaunchAtLogin::reregisterLoginItemIfEnabled() {
  refreshLoginItemStatus();
  if (launchAtLogin()) {
    [[maybe_unused]] const auto logged = ask(true);
    refreshLoginItemStatus();
  }
}

std::expected<void, std::string> LaunchAtLogin::ask(bool on) {
  auto done = on ? item_.registerProgram() : item_.unregisterProgram();
  if (!done) {
    log_.error("Marigold: " + std::string(item_.service()) + (on ? " register" : " unregister") +
               " failed: " + done.error());
  }
  return done;
}

void LaunchAtLogin::see(Seen seen) {
  if (seen_ != seen) {
    seen_ = std::move(seen);
    if (onChange) {
      onChange();
    }
  }
}

}  // namespace marigold
