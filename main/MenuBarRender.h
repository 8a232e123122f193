#pragma once

#include <vector>

#include "Drawing.h"
#include "MenuBarPreferences.h"
#include "MenuBarSlots.h"

// The images of the status item.

namespace marigold {

/// The whole mark: the providers from left to right, each a gauge followed by its texts.
struct MenuBarMark {
  std::vector<MenuBarSegment> segments;  ///< of the drawn providers, in the user's order
  MenuBarStyle style = MenuBarStyle::rings;
  bool darkMenuBar = true;
  Color textColor;
  bool highContrast = false;
  bool devMarker = false;
};

namespace menuBarRender {

/// The mark with its texts, `menuBarMetrics::height` points high and a whole number of points wide.
[[nodiscard]] Drawing markImage(const MenuBarMark& mark, const TextMeasurer& measurer);
/// The mark without its texts in a square, for bars that take only icons: up to three gauges,
/// arranged to stay legible. One provider shows both its windows, several show one each.
[[nodiscard]] Drawing squareImage(const MenuBarMark& mark);

/// What stands in for the mark while there is nothing to show, and the same for a square.
[[nodiscard]] Drawing idleImage(bool devMarker, Color color);
[[nodiscard]] Drawing idleSquare(bool devMarker, Color color);

/// One icon that a tray is offered: a drawing, and how many pixels a point of it is.
struct TrayImage {
  Drawing drawing;
  double scale = 1;
};
/// What a tray is offered: the square in the sizes that bars use, 22, 24, 32 and 48 pixels, and the
/// mark where the tray shows a wide icon wide. Most squeeze it, and take it for being the largest.
[[nodiscard]] std::vector<TrayImage> trayImages(const Drawing& square, const Drawing& mark,
                                                bool showsWide);

/// `drawing` with room added on its right up to `width` points.
[[nodiscard]] Drawing padded(Drawing drawing, double width);

}  // namespace menuBarRender

}  // namespace marigold
