#pragma once

#include <cstdint>
#include <optional>

#include "Drawing.h"
#include "MenuBarPreferences.h"

// The colours of gauges, shared by the menu bar and the popover. Percentages are percent used,
// 0 to 100.

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

namespace usageZone {
inline constexpr Color green{.red = 0.28, .green = 0.78, .blue = 0.55};
inline constexpr Color amber{.red = 0.97, .green = 0.73, .blue = 0.18};
inline constexpr Color red{.red = 0.92, .green = 0.34, .blue = 0.29};
/// The unfilled part of the popover's gauges.
inline constexpr Color track{.red = 0.55, .green = 0.55, .blue = 0.55, .opacity = 0.85};
/// The zone's colour, opaque.
[[nodiscard]] Color color(double percent) noexcept;
}  // namespace usageZone

/// A colour that a user gave a provider.
struct AccentRGB {
  double r = 0;
  double g = 0;
  double b = 0;

  bool operator==(const AccentRGB&) const = default;
};

/// The accent's colour, lighter on a dark menu bar; nothing for `automatic`.
[[nodiscard]] std::optional<AccentRGB> rgb(ProviderAccent accent, bool darkMenuBar) noexcept;

/// What a gauge is filled with: its accent until usage reaches the red zone.
[[nodiscard]] Color menuBarBarFill(ProviderAccent accent, double percent,
                                   bool darkMenuBar) noexcept;
/// The unfilled part of a gauge in the menu bar.
[[nodiscard]] Color ringTrack(bool darkMenuBar, bool highContrast) noexcept;
/// Texts and the idle glyph in the menu bar.
[[nodiscard]] Color menuBarLabelColor(bool darkMenuBar, bool highContrast) noexcept;

/// What the popover's looks depend on.
struct MarigoldTheme {
  enum class Scheme : std::uint8_t { light, dark };
  enum class Contrast : std::uint8_t { standard, increased };
  Scheme scheme = Scheme::light;
  Contrast contrast = Contrast::standard;

  /// Corner radius of the cards, in points.
  static constexpr double cardRadius = 14;

  bool operator==(const MarigoldTheme&) const = default;
};

}  // namespace marigold
