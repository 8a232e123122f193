#pragma once

#include <memory>

#include "ports/Appearance.h"

class QDBusConnection;

namespace marigold {

/// Appearance on Linux: what the desktop's settings portal says, and where it does not say whether
/// the desktop is dark, the toolkit's palette.
///
/// Nothing waits for the portal: until it answers, and where there is none, the palette and the
/// ordinary contrast and motion hold. What it said holds on while it is away. Works with any Qt
/// application; one without a palette counts as dark.
class LinuxAppearance final : public Appearance {
 public:
  /// Asks the portal on `bus`, the user's session bus.
  explicit LinuxAppearance(const QDBusConnection& bus);
  LinuxAppearance(const LinuxAppearance&) = delete;
  LinuxAppearance& operator=(const LinuxAppearance&) = delete;
  LinuxAppearance(LinuxAppearance&&) = delete;
  LinuxAppearance& operator=(LinuxAppearance&&) = delete;
  ~LinuxAppearance() override;

  [[nodiscard]] AppearanceSettings settings() const override { return settings_; }

 private:
  class Sources;

  void update();

  std::unique_ptr<Sources> sources_;
  AppearanceSettings settings_;
};

}  // namespace marigold
