#pragma once

#include <memory>

#include "linux/system/BusLink.h"
#include "ports/Appearance.h"

namespace marigold {

/// Appearance on Linux. Whether the bar is dark is told by the bar's program where that decides it
/// by itself, else by the colour scheme of the desktop's settings portal, else by the toolkit's
/// palette where a theme gave it one; contrast and motion by the portal.
///
/// Nothing waits for the portal: until it answers, and where there is none, the palette and the
/// ordinary contrast and motion hold. What it said holds on while it is away. Works with any Qt
/// application. Windows follow the portal's colour scheme and contrast too, where the toolkit's
/// theme does not: they get a palette that does. What the bar's program says is the bar's alone.
class LinuxAppearance final : public Appearance {
 public:
  /// Asks on `bus`, the user's session bus.
  explicit LinuxAppearance(BusLink& bus);
  LinuxAppearance(const LinuxAppearance&) = delete;
  LinuxAppearance& operator=(const LinuxAppearance&) = delete;
  ~LinuxAppearance() override;

  [[nodiscard]] AppearanceSettings settings() const override { return settings_; }

 private:
  class Sources;

  void update();

  std::unique_ptr<Sources> sources_;
  AppearanceSettings settings_;
  BusLink::Following bus_;
};

}  // namespace marigold
