#pragma once

#include <cstdint>
#include <optional>

#include "base/Drawing.h"
#include "model/MenuBarPreferences.h"
#include "ports/Appearance.h"

// The colours of gauges, shared by the menu bar and the popover. Percentages are percent used,
// 0 to 100. On a menu bar that may be dark or light, greys show on both.

namespace marigold {

/// The colour of a usage zone: green below 70 %, amber from 70 %, red from 90 %.
struct ZoneRGB {
  double red = 0;
  double green = 0;
  double blue = 0;

  bool operator==(const ZoneRGB&) const = default;

  [[nodiscard]] static ZoneRGB color(double percent) noexcept;
};

/// Where the zones begin, in percent.
inline constexpr double amberFrom = 70;
inline constexpr double redFrom = 90;

struct UsageZone {
  static constexpr Color green{.red = 0.28, .green = 0.78, .blue = 0.55};
  static constexpr Color amber{.red = 0.97, .green = 0.73, .blue = 0.18};
  static constexpr Color red{.red = 0.92, .green = 0.34, .blue = 0.29};
  /// The unfilled part of the popover's gauges.
  static constexpr Color track{.red = 0.55, .green = 0.55, .blue = 0.55, .opacity = 0.85};
  /// The zone's colour, opaque.
  [[nodiscard]] static Color color(double percent) noexcept;
};

/// A colour that a user gave a provider.
struct AccentRGB {
  double r = 0;
  double g = 0;
  double b = 0;

  bool operator==(const AccentRGB&) const = default;
};

/// The accent's colour, darker on a light menu bar; nothing for `automatic`.
[[nodiscard]] std::optional<AccentRGB> rgb(ProviderAccent accent, DarkMenuBar darkMenuBar) noexcept;

/// The bar that is drawn for: the one the user calls it, else the one the desktop knows it to be.
[[nodiscard]] DarkMenuBar effectiveDarkMenuBar(BarColors chosen, DarkMenuBar known) noexcept;

/// What a gauge is filled with: its accent until usage reaches the red zone.
[[nodiscard]] Color menuBarBarFill(ProviderAccent accent, double percent,
                                   DarkMenuBar darkMenuBar) noexcept;
/// The unfilled part of a gauge in the menu bar.
[[nodiscard]] Color ringTrack(DarkMenuBar darkMenuBar, bool highContrast) noexcept;
/// Texts and the idle glyph in the menu bar.
[[nodiscard]] Color menuBarLabelColor(DarkMenuBar darkMenuBar, bool highContrast) noexcept;

}  // namespace marigold
