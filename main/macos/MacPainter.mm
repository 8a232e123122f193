#include "macos/MacPainter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <variant>
#include <vector>

#include "macos/MacText.h"

namespace marigold {

namespace {

NSFontWeight toMac(FontStyle::Weight weight) {
  switch (weight) {
    case FontStyle::Weight::regular:
      return NSFontWeightRegular;
    case FontStyle::Weight::medium:
      return NSFontWeightMedium;
    case FontStyle::Weight::semibold:
      return NSFontWeightSemibold;
  }
  return NSFontWeightRegular;
}

// Draws in points, each operation placed in the drawing's own.
class Brush {
 public:
  Brush(Point origin, double magnification, double pixels)
      : origin_(origin), magnification_(magnification), pixels_(pixels) {}

  void draw(const std::vector<DrawOp>& ops) const {
    for (const DrawOp& op : ops) {
      std::visit(*this, op.shape);
    }
  }

  void operator()(const StrokeArc& arc) const {
    const double sweep = std::clamp(arc.sweep, 0.0, 1.0);
    if (sweep == 0) {
      return;
    }
    constexpr double turn = 360;
    const double from = turn * arc.start - turn / 4;
    NSBezierPath* const path = [NSBezierPath bezierPath];
    // In a flipped context angles grow clockwise as seen.
    [path appendBezierPathWithArcWithCenter:at(arc.center)
                                     radius:arc.radius * magnification_
                                 startAngle:from
                                   endAngle:from + turn * sweep
                                  clockwise:NO];
    if (sweep == 1) {
      [path closePath];
    }
    path.lineCapStyle = arc.roundCaps ? NSLineCapStyleRound : NSLineCapStyleButt;
    stroke(path, arc.color, arc.width, arc.dashes);
  }

  void operator()(const FillRoundedRect& rect) const {
    const NSRect bounds = area(rect.origin, rect.size);
    [NSGraphicsContext saveGraphicsState];
    if (rect.level < 1) {
      const double height = bounds.size.height * std::max(rect.level, 0.0);
      [[NSBezierPath bezierPathWithRect:NSMakeRect(bounds.origin.x, NSMaxY(bounds) - height,
                                                   bounds.size.width, height)] addClip];
    }
    [marigold::toMac(rect.color) setFill];
    [rounded(bounds, rect.cornerRadius) fill];
    [NSGraphicsContext restoreGraphicsState];
  }

  void operator()(const StrokeRoundedRect& rect) const {
    stroke(rounded(area(rect.origin, rect.size), rect.cornerRadius), rect.color, rect.width,
           rect.dashes);
  }

  void operator()(const StrokeLoop& loop) const {
    NSBezierPath* const path = [NSBezierPath bezierPath];
    for (const Point& point : loop.points) {
      if (path.empty) {
        [path moveToPoint:at(point)];
      } else {
        [path lineToPoint:at(point)];
      }
    }
    [path closePath];
    stroke(path, loop.color, loop.width, {});
  }

  void operator()(const Text& text) const {
    FontStyle style = text.font;
    style.size *= magnification_;
    if (style.size <= 0) {
      return;
    }
    NSFont* const font = marigold::toMac(style);
    const NSPoint baseline = at(text.baseline);
    const auto snapped = [this](double place) { return std::round(place * pixels_) / pixels_; };
    // A text's rectangle begins an ascent above its base line.
    [marigold::toMac(text.text)
           drawAtPoint:NSMakePoint(snapped(baseline.x), snapped(baseline.y) - font.ascender)
        withAttributes:@{
          NSFontAttributeName : font,
          NSForegroundColorAttributeName : marigold::toMac(text.color)
        }];
  }

  void operator()(const Layer& layer) const {
    const NSPoint origin = at(layer.origin);
    Brush({.x = origin.x, .y = origin.y}, magnification_ * layer.scale, pixels_).draw(layer.ops);
  }

 private:
  [[nodiscard]] NSPoint at(const Point& point) const {
    return NSMakePoint(origin_.x + point.x * magnification_, origin_.y + point.y * magnification_);
  }
  [[nodiscard]] NSRect area(const Point& origin, const Size& size) const {
    const NSPoint corner = at(origin);
    return NSMakeRect(corner.x, corner.y, size.width * magnification_,
                      size.height * magnification_);
  }
  [[nodiscard]] NSBezierPath* rounded(NSRect bounds, double cornerRadius) const {
    const double radius =
        std::min({cornerRadius * magnification_, bounds.size.width / 2, bounds.size.height / 2});
    return [NSBezierPath bezierPathWithRoundedRect:bounds xRadius:radius yRadius:radius];
  }
  void stroke(NSBezierPath* path, const Color& color, double width, const Dashes& dashes) const {
    path.lineWidth = width * magnification_;
    path.lineJoinStyle = NSLineJoinStyleRound;
    if (dashes.dash > 0 && dashes.gap > 0) {
      const std::array<CGFloat, 2> pattern{dashes.dash * magnification_,
                                           dashes.gap * magnification_};
      [path setLineDash:pattern.data() count:pattern.size() phase:0];
    }
    [marigold::toMac(color) setStroke];
    [path stroke];
  }

  Point origin_;
  double magnification_;
  double pixels_;  // a point
};

}  // namespace

NSColor* toMac(const Color& color) {
  return [NSColor colorWithSRGBRed:color.red green:color.green blue:color.blue alpha:color.opacity];
}

NSFont* toMac(const FontStyle& font) {
  return font.monospacedDigits
             ? [NSFont monospacedDigitSystemFontOfSize:font.size weight:toMac(font.weight)]
             : [NSFont systemFontOfSize:font.size weight:toMac(font.weight)];
}

void paint(const Drawing& drawing, double scale) {
  Brush({}, 1, scale).draw(drawing.ops);
}

NSImage* imageOf(const Drawing& drawing, double scale) {
  const Drawing kept = drawing;  // a block would keep a reference as one
  return [NSImage imageWithSize:NSMakeSize(drawing.size.width, drawing.size.height)
                        flipped:YES
                 drawingHandler:^BOOL(NSRect) {
                   paint(kept, scale);
                   return YES;
                 }];
}

TextExtent MacTextMeasurer::measure(std::string_view text, const FontStyle& font) const {
  NSFont* const face = toMac(font);
  const NSSize size = [marigold::toMac(text) sizeWithAttributes:@{NSFontAttributeName : face}];
  return {.width = size.width,
          .ascent = face.ascender,
          .descent = -face.descender,
          .capHeight = face.capHeight};
}

}  // namespace marigold
