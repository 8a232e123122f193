#pragma once

#include <string>

#include "base/Surroundings.h"
#include "ports/LoginItem.h"

namespace marigold {

/// Launching at login by an entry of this user's, named by the bundle identifier, in the autostart
/// directory that all desktops read. It is on as long as there is an entry that no desktop has
/// disabled. Of an entry that others have changed, what they added stays.
class LinuxLoginItem final : public LoginItem {
 public:
  /// `program` is the absolute path that an entry starts; without it nothing can be registered.
  LinuxLoginItem(const Surroundings& surroundings, std::string program);

  [[nodiscard]] Status status() const override;
  [[nodiscard]] std::expected<void, std::string> registerProgram() override;
  [[nodiscard]] std::expected<void, std::string> unregisterProgram() override;
  [[nodiscard]] std::string_view service() const override { return "autostart entry"; }

 private:
  const std::string path_;
  const std::string name_;
  const std::string program_;
};

}  // namespace marigold
