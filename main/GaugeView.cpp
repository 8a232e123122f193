#include "GaugeView.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "bar/Palette.h"

namespace marigold {

using Metrics = MenuBarMetrics;

namespace {

double filledFraction(double percent) {
  return std::clamp(percent / 100, Metrics::minArc, 1.0);
}

// How a hollow gauge is drawn, of whichever shape: a thin broken line.
constexpr double hollowLine = 1.25;

// Dashes that meet themselves after a whole number of periods: longer than their gaps, so that the
// shape stays readable at one pixel a point.
Dashes closedDashes(double perimeter) {
  constexpr double period = 3.4;
  constexpr double share = 0.6;
  const double exact = perimeter / std::max(1.0, std::round(perimeter / period));
  return {.dash = exact * share, .gap = exact * (1 - share)};
}

Color drawn(Color color, GaugeBar::Mode mode) {
  if (mode == GaugeBar::Mode::stale) {
    color.opacity *= MenuBarRing::staleOpacity;
  }
  return color;
}

// The unfilled part of a gauge. What is faded or a thin line takes the stronger track, or else it
// would hardly show.
Color track(GaugeBar::Mode mode, DarkMenuBar darkMenuBar, bool highContrast) {
  return drawn(ringTrack(darkMenuBar, highContrast || mode != GaugeBar::Mode::normal), mode);
}

}  // namespace

void MenuBarRing::draw(Drawing& drawing, Point center) const {
  StrokeArc arc{.center = center,
                .radius = radius,
                .width = stroke,
                .color = track(bar.mode, trackMenuBar.value_or(darkMenuBar), highContrast)};
  if (bar.mode == GaugeBar::Mode::hollow) {
    if (dashWhenHollow) {
      arc.width = hollowLine;
      arc.dashes = closedDashes(2 * std::numbers::pi * radius);
    }
    drawing.add(arc);
    return;
  }
  drawing.add(arc);
  // Round ends lie within the filled part, so that it covers its share and no more. One too short
  // for them is cut flat, and only a whole circle closes.
  const double filled = filledFraction(bar.percent);
  const double end = std::asin(stroke / 2 / radius) / (2 * std::numbers::pi);
  arc.roundCaps = filled < 1 && filled > 2 * end;
  arc.start = arc.roundCaps ? end : 0;
  arc.sweep = filled - 2 * arc.start;
  arc.color = drawn(menuBarBarFill(bar.accent, bar.percent, darkMenuBar), bar.mode);
  drawing.add(arc);
}

void MenuBarRingGlyph::draw(Drawing& drawing, Point origin) const {
  const Point center{.x = origin.x + Metrics::glyph / 2, .y = origin.y + Metrics::glyph / 2};
  MenuBarRing ring{
      .darkMenuBar = darkMenuBar, .trackMenuBar = trackMenuBar, .highContrast = highContrast};
  if (outer) {
    ring.bar = *outer;
    ring.draw(drawing, center);
  }
  if (inner) {
    ring.bar = *inner;
    ring.radius = Metrics::innerRadius;
    ring.stroke = Metrics::innerStroke;
    ring.draw(drawing, center);
  }
}

void MenuBarPill::draw(Drawing& drawing, Point origin) const {
  // Squarer than a half circle, in whose foot the first tenth would hardly show.
  const double radius = std::min(size.width, size.height) / 3;
  const Color unfilled = track(bar.mode, trackMenuBar.value_or(darkMenuBar), highContrast);
  if (bar.mode == GaugeBar::Mode::hollow) {
    const Size inside{.width = size.width - hollowLine, .height = size.height - hollowLine};
    const double corner = radius - hollowLine / 2;
    const double perimeter =
        2 * (inside.width + inside.height) - (8 - 2 * std::numbers::pi) * corner;
    drawing.add(StrokeRoundedRect{
        .origin = {.x = origin.x + hollowLine / 2, .y = origin.y + hollowLine / 2},
        .size = inside,
        .cornerRadius = corner,
        .width = hollowLine,
        .color = unfilled,
        .dashes = closedDashes(perimeter)});
    return;
  }
  FillRoundedRect shape{.origin = origin, .size = size, .cornerRadius = radius, .color = unfilled};
  drawing.add(shape);
  constexpr double leastHeight = 1.5;  // less would not be seen
  shape.level = std::max(filledFraction(bar.percent), leastHeight / size.height);
  shape.color = drawn(menuBarBarFill(bar.accent, bar.percent, darkMenuBar), bar.mode);
  drawing.add(shape);
}

std::vector<Point> PetalWave::points(Point center, double radius) const {
  constexpr int perHalf = 12;  // smooth at twice the size it is drawn at
  const int count = std::max(halves, 1) * perHalf;
  std::vector<Point> outline;
  outline.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    const double turn = 2 * std::numbers::pi * i / count;
    const double reach = radius + amplitude * std::abs(std::cos(turn * halves / 2));
    outline.push_back(
        {.x = center.x + reach * std::sin(turn), .y = center.y - reach * std::cos(turn)});
  }
  return outline;
}

void MenuBarDevMarker::draw(Drawing& drawing, Point origin) {
  constexpr double side = 3;  // fits the corner that a ring leaves free
  const auto accent = rgb(ProviderAccent::orange, DarkMenuBar::yes).value_or(AccentRGB{});
  drawing.add(FillRoundedRect{.origin = origin,
                              .size = {.width = side, .height = side},
                              .cornerRadius = side / 2,
                              .color = {.red = accent.r, .green = accent.g, .blue = accent.b}});
}

void MenuBarIdleGlyph::draw(Drawing& drawing, Point origin) const {
  // Few and deep: more, or flatter ones, read as the teeth of a gear.
  constexpr PetalWave petals{.amplitude = 3, .halves = 5};
  constexpr double radius = 4.1;
  constexpr double line = 1.5;
  constexpr double heart = 3.5;
  constexpr double lower = 0.6;  // five petals reach higher than they reach down
  const Point center{.x = origin.x + Metrics::glyph / 2,
                     .y = origin.y + Metrics::glyph / 2 + lower};
  drawing.add(StrokeLoop{.points = petals.points(center, radius), .width = line, .color = color});
  drawing.add(FillRoundedRect{.origin = {.x = center.x - heart / 2, .y = center.y - heart / 2},
                              .size = {.width = heart, .height = heart},
                              .cornerRadius = heart / 2,
                              .color = color});
  if (devMarker) {
    MenuBarDevMarker::draw(drawing, origin);
  }
}

}  // namespace marigold
