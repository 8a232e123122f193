#pragma once

#include <optional>

#include "base/Drawing.h"
#include "ports/PopoverContent.h"

// What the popover is painted with, on every desktop alike.

namespace marigold {

/// Colours by what they paint. Those that are not opaque lie over the card or the ground.
struct PopoverColors {
  Color ground;
  Color edge;  ///< around the window
  Color card;
  Color cardEdge;
  Color separator;  ///< hairlines within a card
  Color text;
  Color secondary;                  ///< texts of less weight
  Color track;                      ///< a bar's whole length
  std::optional<Color> barOutline;  ///< around track and fill
  Color neutralBadge;
  Color neutralBadgeText;
  Color warningBadge;
  Color warningBadgeText;
  Color control;  ///< ground of buttons and of the chosen segment
  Color controlEdge;
  Color controlText;
  Color switchOff;
  Color accent;  ///< of a switch that is on, and of what is selected
  Color onAccent;
  Color hover;  ///< over what the pointer would use
  Color focusRing;
  double disabled = 0.45;  ///< opacity of a control that cannot be used

  bool operator==(const PopoverColors&) const = default;
};

[[nodiscard]] const PopoverColors& popoverColors(const MarigoldTheme& theme) noexcept;

/// How much of a bar of this length is filled: at least three points of what is used at all, and
/// never quite the whole below 100 percent.
[[nodiscard]] double barFillLength(double percent, double length) noexcept;

}  // namespace marigold
