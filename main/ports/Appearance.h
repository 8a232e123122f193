#pragma once

#include <functional>

#include "Pinned.h"

namespace marigold {

/// How the desktop looks and how its user asked to be served.
struct AppearanceSettings {
  bool darkMenuBar = true;        ///< the bar that holds the status item is dark
  bool increaseContrast = false;  ///< the user asked for more contrast
  bool reduceMotion = false;      ///< the user asked for less motion

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
