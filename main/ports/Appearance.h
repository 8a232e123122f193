#pragma once

#include <cstdint>
#include <functional>

#include "base/Pinned.h"

namespace marigold {

/// Whether the bar that holds the status item is dark, as far as it can be known.
enum class DarkMenuBar : std::uint8_t { unknown, no, yes };

/// How the desktop looks and how its user asked to be served.
struct AppearanceSettings {
  DarkMenuBar darkMenuBar = DarkMenuBar::unknown;
  bool increaseContrast = false;  ///< the user asked for more contrast
  bool reduceMotion = false;      ///< the user asked for less motion
  bool darkWindows = false;       ///< the desktop's windows are dark, whatever its bar is

  bool operator==(const AppearanceSettings&) const = default;
};

/// The desktop's appearance settings. Lives on the main loop's thread. This base stands in where
/// nothing is drawn, nor anything moves.
class Appearance : public Pinned {
 public:
  /// Called, on the main loop's thread, after `settings` changed.
  std::function<void()> onChange;

  [[nodiscard]] virtual AppearanceSettings settings() const { return {.reduceMotion = true}; }
};

}  // namespace marigold
