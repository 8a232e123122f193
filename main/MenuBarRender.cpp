#include "MenuBarRender.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "GaugeView.h"
#include "bar/Palette.h"

namespace marigold {

using Metrics = MenuBarMetrics;

namespace {

constexpr FontStyle labelFont{.size = Metrics::labelSize, .weight = FontStyle::Weight::semibold};
constexpr FontStyle numberFont{
    .size = Metrics::numberSize, .weight = FontStyle::Weight::medium, .monospacedDigits = true};

// The side of the smallest square that bars ask for.
constexpr double squareSide = 22;
// Square icons go to hosts whose bars may be of another ground than anything tells.
constexpr DarkMenuBar squareTrack = DarkMenuBar::unknown;

// Sets the texts of one line from left to right.
class Line {
 public:
  Line(Drawing& drawing, const TextMeasurer& measurer, Color color)
      : drawing_(drawing),
        measurer_(measurer),
        color_(color),
        // Centred by the height of digits, which every text here has.
        baseline_((Metrics::height + measurer.measure("0", numberFont).capHeight) / 2),
        thin_(measurer.measure(thinSpace, numberFont).width) {}

  // The texts of a segment, from `x` on and `gap` away from there; gives where they end. They end
  // on a whole point, so that the next gauge lies on the pixels of a screen at scale 1: what that
  // takes goes before them.
  double segment(double x, const MenuBarSegment& segment, double gap) {
    const double length = window(0, segment.label, segment.token, segment.reset, false);
    const double innerLength =
        window(0, segment.innerLabel, segment.innerToken, segment.innerReset, false);
    if (length == 0 && innerLength == 0) {
      return x;
    }
    const double between = length > 0 && innerLength > 0 ? Metrics::windowGap : 0;
    const double end = std::ceil(x + gap + length + between + innerLength);
    window(end - innerLength - between - length, segment.label, segment.token, segment.reset, true);
    window(end - innerLength, segment.innerLabel, segment.innerToken, segment.innerReset, true);
    return end;
  }

 private:
  // The texts of one window, from `x` on; gives where they end. A label alone is none.
  double window(double x, const std::optional<std::string>& label,
                const std::optional<std::string>& token, const std::optional<std::string>& reset,
                bool draws) {
    double gap = 0;
    const auto set = [&](const std::optional<std::string>& text, const FontStyle& font,
                         double gapAfter) {
      if (!text) {
        return;
      }
      x += gap;
      if (draws) {
        drawing_.add(Text{
            .baseline = {.x = x, .y = baseline_}, .text = *text, .font = font, .color = color_});
      }
      x += measurer_.measure(*text, font).width;
      gap = gapAfter;
    };
    set(label, labelFont, thin_);
    set(token, numberFont, Metrics::numberGap);
    set(reset, numberFont, 0);
    return x;
  }

  Drawing& drawing_;
  const TextMeasurer& measurer_;
  Color color_;
  double baseline_;
  double thin_;
};

std::optional<GaugeBar> outerBar(const MenuBarSegment& segment) {
  return segment.rendersBar ? std::optional(segment.bar) : std::nullopt;
}

std::optional<GaugeBar> innerBar(const MenuBarSegment& segment) {
  return segment.rendersInner ? segment.inner : std::nullopt;
}

// The one gauge of a segment where there is room for one only.
std::optional<GaugeBar> leadingBar(const MenuBarSegment& segment) {
  const auto outer = outerBar(segment);
  return outer ? outer : innerBar(segment);
}

// Draws the gauge of one segment at the left end `x` of its place; gives where it ends.
double drawGauge(Drawing& drawing, const MenuBarMark& mark, const MenuBarSegment& segment,
                 double x) {
  const auto leading = leadingBar(segment);
  if (!leading) {
    return x;
  }
  if (mark.style == MenuBarStyle::pills) {
    MenuBarPill{.bar = *leading, .darkMenuBar = mark.darkMenuBar, .highContrast = mark.highContrast}
        .draw(drawing, {.x = x, .y = (Metrics::height - Metrics::pillHeight) / 2});
    return x + Metrics::pillWidth;
  }
  MenuBarRingGlyph{.outer = outerBar(segment),
                   .inner = innerBar(segment),
                   .darkMenuBar = mark.darkMenuBar,
                   .highContrast = mark.highContrast}
      .draw(drawing, {.x = x, .y = (Metrics::height - Metrics::glyph) / 2});
  return x + Metrics::glyph;
}

Drawing glyphSquare(Drawing glyph) {
  Drawing square{.size = {.width = squareSide, .height = squareSide}};
  square.add(Layer{.scale = squareSide / Metrics::glyph, .ops = std::move(glyph.ops)});
  return square;
}

Drawing ringSquare(const MenuBarMark& mark, std::span<const GaugeBar> bars) {
  // Discs that touch neither each other nor the edge: two on the diagonal, three in a triangle.
  constexpr double radius = 4.75;
  constexpr double stroke = 2.5;
  constexpr std::array two{Point{.x = 6.5, .y = 6.5}, Point{.x = 15.5, .y = 15.5}};
  constexpr std::array three{Point{.x = 5.5, .y = 6}, Point{.x = 16.5, .y = 6},
                             Point{.x = 11, .y = 16}};
  Drawing square{.size = {.width = squareSide, .height = squareSide}};
  for (std::size_t i = 0; i < bars.size(); ++i) {
    MenuBarRing{.bar = bars[i],
                .radius = bars.size() == 2 ? radius : radius - 0.75,
                .stroke = stroke,
                .darkMenuBar = mark.darkMenuBar,
                .trackMenuBar = squareTrack,
                .highContrast = mark.highContrast}
        .draw(square, bars.size() == 2 ? two.at(i) : three.at(i));
  }
  return square;
}

Drawing pillSquare(const MenuBarMark& mark, std::span<const GaugeBar> bars) {
  constexpr double tall = 18;
  const double width = bars.size() <= 2 ? 10.0 - static_cast<double>(bars.size()) : 6;
  constexpr double gap = 2;
  const auto count = static_cast<double>(bars.size());
  double x = (squareSide - count * width - (count - 1) * gap) / 2;
  Drawing square{.size = {.width = squareSide, .height = squareSide}};
  for (const GaugeBar& bar : bars) {
    MenuBarPill{.bar = bar,
                .darkMenuBar = mark.darkMenuBar,
                .trackMenuBar = squareTrack,
                .highContrast = mark.highContrast,
                .size = {.width = width, .height = tall}}
        .draw(square, {.x = x, .y = (squareSide - tall) / 2});
    x += width + gap;
  }
  return square;
}

}  // namespace

MenuBarRender::Images MenuBarRender::images(const MenuBarContent& content, MenuBarStyle style,
                                            const AppearanceSettings& appearance, bool devBuild,
                                            const TextMeasurer& measurer) {
  const MenuBarMark mark{
      .segments = content.segments,
      .style = style,
      .darkMenuBar = appearance.darkMenuBar,
      .textColor = menuBarLabelColor(appearance.darkMenuBar, appearance.increaseContrast),
      .highContrast = appearance.increaseContrast,
      .devMarker = devBuild};
  return {.mark = content.isIdle ? idleImage(devBuild, mark.textColor) : markImage(mark, measurer),
          .square = content.isIdle ? idleSquare(devBuild) : squareImage(mark)};
}

StatusItemContent MenuBarRender::statusItemContent(Images images, const MenuBarContent& content,
                                                   DarkMenuBar darkMenuBar, bool devBuild) {
  return {.mark = std::move(images.mark),
          .square = std::move(images.square),
          .label = content.label,
          .tooltip = content.tooltip,
          .tooltipTitle = (devBuild ? "[Dev] " : "") + content.title,
          .accessibilityLabel = devBuild ? "Marigold Dev" : "Marigold",
          .accessibilityValue = content.spoken,
          .tooltipWithoutAges = content.tooltipWithoutAges,
          .darkMenuBar = darkMenuBar};
}

Drawing MenuBarRender::markImage(const MenuBarMark& mark, const TextMeasurer& measurer) {
  Drawing drawing{.size = {.width = 0, .height = Metrics::height}};
  Line line(drawing, measurer, mark.textColor);
  double x = Metrics::sidePad;
  double end = x;  // of what is drawn so far
  for (const MenuBarSegment& segment : mark.segments) {
    const double start = x;
    x = drawGauge(drawing, mark, segment, x);
    x = line.segment(x, segment, x > start ? Metrics::numberGap : 0);
    if (x > start) {
      end = x;
      x += Metrics::providerGap;
    }
  }
  drawing.size.width = end + Metrics::sidePad;
  if (mark.devMarker) {
    MenuBarDevMarker::draw(drawing, {.x = 0, .y = 0});
  }
  return drawing;
}

Drawing MenuBarRender::squareImage(const MenuBarMark& mark) {
  std::vector<GaugeBar> bars;
  for (const MenuBarSegment& segment : mark.segments) {
    if (const auto bar = leadingBar(segment)) {
      bars.push_back(*bar);
    }
  }
  Drawing square;
  if (mark.style == MenuBarStyle::pills) {
    square = pillSquare(mark, bars);
  } else if (bars.size() == 1) {
    const auto only = std::ranges::find_if(
        mark.segments, [](const auto& segment) { return leadingBar(segment).has_value(); });
    Drawing glyph;
    MenuBarRingGlyph{.outer = outerBar(*only),
                     .inner = innerBar(*only),
                     .darkMenuBar = mark.darkMenuBar,
                     .trackMenuBar = squareTrack,
                     .highContrast = mark.highContrast}
        .draw(glyph, {});
    square = glyphSquare(std::move(glyph));
  } else {
    square = ringSquare(mark, bars);
  }
  if (mark.devMarker) {
    MenuBarDevMarker::draw(square, {});
  }
  return square;
}

Drawing MenuBarRender::idleImage(bool devMarker, Color color) {
  Drawing drawing{.size = {.width = Metrics::glyph, .height = Metrics::height}};
  MenuBarIdleGlyph{.devMarker = devMarker, .color = color}.draw(
      drawing, {.x = 0, .y = (Metrics::height - Metrics::glyph) / 2});
  return drawing;
}

Drawing MenuBarRender::idleSquare(bool devMarker) {
  Drawing glyph;
  MenuBarIdleGlyph{.devMarker = devMarker, .color = menuBarLabelColor(squareTrack, false)}.draw(
      glyph, {});
  return glyphSquare(std::move(glyph));
}

std::vector<MenuBarRender::TrayImage> MenuBarRender::trayImages(const Drawing& square,
                                                                const Drawing& mark,
                                                                std::optional<int> wideAt) {
  if (wideAt) {
    constexpr int barsIcon = 20;
    return {{.drawing = mark, .scale = barsIcon * *wideAt / Metrics::height}};
  }
  std::vector<TrayImage> images;
  for (const double pixels : {22, 24, 32, 48}) {
    images.push_back({.drawing = square, .scale = pixels / square.size.width});
  }
  return images;
}

Drawing MenuBarRender::padded(Drawing drawing, double width) {
  drawing.size.width = std::max(drawing.size.width, width);
  return drawing;
}

}  // namespace marigold
