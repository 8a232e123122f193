#include "GaugeView.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "Palette.h"

namespace marigold {

namespace metrics = menuBarMetrics;

namespace {

double filledFraction(double percent) {
  return std::clamp(percent / 100, metrics::minArc, 1.0);
}

// Dashes that meet themselves after a whole number of periods: a little longer than their gaps, so
// that the shape stays readable at one pixel a point.
Dashes closedDashes(double perimeter) {
  constexpr double period = 2.75;
  constexpr double share = 0.55;
  const double exact = perimeter / std::max(1.0, std::round(perimeter / period));
  return {.dash = exact * share, .gap = exact * (1 - share)};
}

// A faded gauge is composited as one: its track must not shine through its fill.
void addFaded(Drawing& drawing, GaugeBar::Mode mode, Drawing gauge) {
  if (mode == GaugeBar::Mode::stale) {
    drawing.add(Layer{.opacity = MenuBarRing::staleOpacity, .ops = std::move(gauge.ops)});
    return;
  }
  std::ranges::move(gauge.ops, std::back_inserter(drawing.ops));
}

}  // namespace

void MenuBarRing::draw(Drawing& drawing, Point center) const {
  const bool hollow = bar.mode == GaugeBar::Mode::hollow;
  Drawing ring;
  StrokeArc track{.center = center,
                  .radius = radius,
                  .width = stroke,
                  .color = ringTrack(darkMenuBar, highContrast)};
  if (hollow && dashWhenHollow) {
    track.dashes = closedDashes(2 * std::numbers::pi * radius);
  }
  ring.add(track);
  if (!hollow) {
    ring.add(StrokeArc{.center = center,
                       .radius = radius,
                       .width = stroke,
                       .sweep = filledFraction(bar.percent),
                       .color = menuBarBarFill(bar.accent, bar.percent, darkMenuBar),
                       .roundCaps = true});
  }
  addFaded(drawing, bar.mode, std::move(ring));
}

void MenuBarRingGlyph::draw(Drawing& drawing, Point origin) const {
  const Point center{.x = origin.x + metrics::glyph / 2, .y = origin.y + metrics::glyph / 2};
  const auto ring = [&](const GaugeBar& bar, double radius, double stroke) {
    MenuBarRing{.bar = bar,
                .radius = radius,
                .stroke = stroke,
                .darkMenuBar = darkMenuBar,
                .highContrast = highContrast}
        .draw(drawing, center);
  };
  if (outer) {
    ring(*outer, metrics::outerRadius, metrics::outerStroke);
  }
  if (inner) {
    ring(*inner, metrics::innerRadius, metrics::innerStroke);
  }
}

void MenuBarPill::draw(Drawing& drawing, Point origin) const {
  const double radius = std::min(size.width, size.height) / 2;
  Drawing pill;
  if (bar.mode == GaugeBar::Mode::hollow) {
    constexpr double line = 1;
    const double straight = 2 * (size.height - 2 * radius);
    pill.add(StrokeRoundedRect{
        .origin = {.x = origin.x + line / 2, .y = origin.y + line / 2},
        .size = {.width = size.width - line, .height = size.height - line},
        .cornerRadius = radius - line / 2,
        .width = line,
        .color = ringTrack(darkMenuBar, true),  // a thin line needs more of it
        .dashes = closedDashes(straight + 2 * std::numbers::pi * (radius - line / 2))});
  } else {
    FillRoundedRect shape{.origin = origin,
                          .size = size,
                          .cornerRadius = radius,
                          .color = ringTrack(darkMenuBar, highContrast)};
    pill.add(shape);
    // The rounded foot hides the first tenth: less would not be seen.
    constexpr double leastLevel = 0.1;
    shape.level = std::max(filledFraction(bar.percent), leastLevel);
    shape.color = menuBarBarFill(bar.accent, bar.percent, darkMenuBar);
    pill.add(shape);
  }
  addFaded(drawing, bar.mode, std::move(pill));
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
  const auto accent = rgb(ProviderAccent::orange, true).value_or(AccentRGB{});
  drawing.add(FillRoundedRect{.origin = origin,
                              .size = {.width = side, .height = side},
                              .cornerRadius = side / 2,
                              .color = {.red = accent.r, .green = accent.g, .blue = accent.b}});
}

void MenuBarIdleGlyph::draw(Drawing& drawing, Point origin) const {
  constexpr PetalWave petals{.amplitude = 2, .halves = 8};
  constexpr double radius = 4.9;
  constexpr double line = 1.5;
  constexpr double heart = 4;
  const Point center{.x = origin.x + metrics::glyph / 2, .y = origin.y + metrics::glyph / 2};
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
