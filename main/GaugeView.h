#pragma once

#include <optional>
#include <vector>

#include "bar/MenuBarSegments.h"
#include "base/Drawing.h"
#include "ports/Appearance.h"

// The gauges and glyphs of the menu bar as drawings. Each view is a value whose `draw` appends it
// to a drawing, at a place in points.

namespace marigold {

/// Lengths of the mark in points, unless said otherwise.
struct MenuBarMetrics {
  static constexpr double glyph = 16;  ///< side of the square that holds a ring glyph
  static constexpr double pillWidth = 6;
  static constexpr double pillHeight = 12;
  static constexpr double outerRadius = 7;
  static constexpr double outerStroke = 2;
  static constexpr double innerRadius = 4.1;
  static constexpr double innerStroke = 1.8;
  static constexpr double minArc = 0.03;  ///< smallest drawn fraction of a gauge: it stays visible
  static constexpr double numberGap = 3;  ///< between a gauge and its texts
  static constexpr double providerGap = 6;  ///< between two providers' marks
  static constexpr double sidePad = 0;      ///< at both ends of the mark
  static constexpr double windowGap = 4.5;  ///< between the two windows' texts
  static constexpr double labelSize = 9.5;  ///< font size of "5h" and "wk"
  static constexpr double height = 18;      ///< of the whole mark
  static constexpr double numberSize = 11;  ///< font size of percentages and countdowns
};

/// One ring around `center`.
struct MenuBarRing {
  GaugeBar bar;
  double radius = MenuBarMetrics::outerRadius;
  double stroke = MenuBarMetrics::outerStroke;
  DarkMenuBar darkMenuBar = DarkMenuBar::yes;
  /// The ground that the unfilled part is drawn for, where that is another.
  std::optional<DarkMenuBar> trackMenuBar;
  bool highContrast = false;
  bool dashWhenHollow = true;  ///< a hollow ring has a dashed track, not a whole one

  /// A stale gauge is drawn with this opacity.
  static constexpr double staleOpacity = 0.55;

  void draw(Drawing& drawing, Point center) const;
};

/// One or two concentric rings in a square of `MenuBarMetrics::glyph`. A ring that is absent leaves
/// its place empty.
struct MenuBarRingGlyph {
  std::optional<GaugeBar> outer;
  std::optional<GaugeBar> inner;
  DarkMenuBar darkMenuBar = DarkMenuBar::yes;
  std::optional<DarkMenuBar> trackMenuBar;  ///< as of `MenuBarRing`
  bool highContrast = false;

  void draw(Drawing& drawing, Point origin) const;
};

/// An upright pill that fills from the bottom.
struct MenuBarPill {
  GaugeBar bar;
  DarkMenuBar darkMenuBar = DarkMenuBar::yes;
  std::optional<DarkMenuBar> trackMenuBar;  ///< as of `MenuBarRing`
  bool highContrast = false;
  Size size = {.width = MenuBarMetrics::pillWidth, .height = MenuBarMetrics::pillHeight};

  void draw(Drawing& drawing, Point origin) const;
};

/// The outline of a flower: around a circle lie `halves` half waves, each a petal that reaches
/// `amplitude` points beyond it.
struct PetalWave {
  double amplitude = 0;
  int halves = 0;

  /// Its points around `center`, in order.
  [[nodiscard]] std::vector<Point> points(Point center, double radius) const;
};

/// The dot that tells a development build from an installed one.
struct MenuBarDevMarker {
  static void draw(Drawing& drawing, Point origin);
};

/// What stands in for the mark while there is nothing to show, in the square of a glyph.
struct MenuBarIdleGlyph {
  bool devMarker = false;
  Color color;

  void draw(Drawing& drawing, Point origin) const;
};

}  // namespace marigold
