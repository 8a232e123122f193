#pragma once

#include <optional>
#include <vector>

#include "bar/MenuBarContent.h"
#include "base/Drawing.h"
#include "model/MenuBarPreferences.h"
#include "ports/Appearance.h"
#include "ports/StatusItem.h"

// The images of the status item.

namespace marigold {

/// The whole mark: the providers from left to right, each a gauge followed by its texts.
struct MenuBarMark {
  std::vector<MenuBarSegment> segments;  ///< of the drawn providers, in the user's order
  MenuBarStyle style = MenuBarStyle::rings;
  DarkMenuBar darkMenuBar = DarkMenuBar::yes;
  Color textColor;
  bool highContrast = false;
  bool devMarker = false;
};

/// Draws them.
struct MenuBarRender {
  struct Images {
    Drawing mark;
    Drawing square;
  };
  /// What `content` shows, in the user's style and as the desktop looks. Its texts change nothing.
  [[nodiscard]] static Images images(const MenuBarContent& content, MenuBarStyle style,
                                     const AppearanceSettings& appearance, bool devBuild,
                                     const TextMeasurer& measurer);
  /// All that the status item shows and says.
  [[nodiscard]] static StatusItemContent statusItemContent(Images images,
                                                           const MenuBarContent& content,
                                                           DarkMenuBar darkMenuBar, bool devBuild);

  /// The mark with its texts, `MenuBarMetrics::height` points high and a whole number of points
  /// wide.
  [[nodiscard]] static Drawing markImage(const MenuBarMark& mark, const TextMeasurer& measurer);
  /// The mark without its texts in a square, for bars that take only icons: up to three gauges,
  /// arranged to stay legible. One provider shows both its windows, several show one each.
  [[nodiscard]] static Drawing squareImage(const MenuBarMark& mark);

  /// What stands in for the mark while there is nothing to show, and the same for a square, which
  /// shows on every ground.
  [[nodiscard]] static Drawing idleImage(bool devMarker, Color color);
  [[nodiscard]] static Drawing idleSquare(bool devMarker);

  /// One icon that a tray is offered: a drawing, and how many pixels a point of it is.
  struct TrayImage {
    Drawing drawing;
    double scale = 1;
  };
  /// What a tray is offered: the square in the sizes that bars use, 22, 24, 32 and 48 pixels. Most
  /// squeeze a wide icon, so the mark is only for a tray that shows it wide, on a screen of the
  /// whole-number scale `wideAt`. That tray takes the largest icon there is, and gets no other.
  [[nodiscard]] static std::vector<TrayImage> trayImages(const Drawing& square, const Drawing& mark,
                                                         std::optional<int> wideAt);

  /// `drawing` with room added on its right up to `width` points.
  [[nodiscard]] static Drawing padded(Drawing drawing, double width);
};

}  // namespace marigold
