#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/Pinned.h"

// Pictures as values: what a view draws, without saying how. A desktop has one painter for them.
// Lengths are in points, the origin is the top left corner, colours are sRGB.

namespace marigold {

struct Point {
  double x = 0;
  double y = 0;

  bool operator==(const Point&) const = default;
};

struct Size {
  double width = 0;
  double height = 0;

  bool operator==(const Size&) const = default;
};

/// Components from 0 to 1, not premultiplied.
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double opacity = 1;

  bool operator==(const Color&) const = default;
};

/// A face of the system's interface font.
struct FontStyle {
  enum class Weight : std::uint8_t { regular, medium, semibold };
  double size = 11;
  Weight weight = Weight::regular;
  bool monospacedDigits = false;  ///< every digit takes the width of the widest

  bool operator==(const FontStyle&) const = default;
};

/// How a line is broken: lengths of dash and gap; no dash draws it whole.
struct Dashes {
  double dash = 0;
  double gap = 0;

  bool operator==(const Dashes&) const = default;
};

/// Part of a circle, stroked. Angles count in turns, clockwise from the top.
struct StrokeArc {
  Point center;
  double radius = 0;
  double width = 1;
  double sweep = 1;  ///< 1 is the whole circle
  Color color;
  bool roundCaps = false;
  Dashes dashes;
  double start = 0;

  bool operator==(const StrokeArc&) const = default;
};

/// A rectangle with rounded corners, filled from the bottom up to `level` of its height.
struct FillRoundedRect {
  Point origin;
  Size size;
  double cornerRadius = 0;
  Color color;
  double level = 1;

  bool operator==(const FillRoundedRect&) const = default;
};

/// The outline of a rectangle with rounded corners; the line is centred on the edge.
struct StrokeRoundedRect {
  Point origin;
  Size size;
  double cornerRadius = 0;
  double width = 1;
  Color color;
  Dashes dashes;

  bool operator==(const StrokeRoundedRect&) const = default;
};

/// A closed line through points, stroked with round joins.
struct StrokeLoop {
  std::vector<Point> points;
  double width = 1;
  Color color;

  bool operator==(const StrokeLoop&) const = default;
};

/// One line of text. `baseline` is the left end of its base line, which the painter moves to the
/// nearest whole pixel.
struct Text {
  Point baseline;
  std::string text;
  FontStyle font;
  Color color;

  bool operator==(const Text&) const = default;
};

struct DrawOp;

/// A drawing within the drawing.
struct Layer {
  Point origin;
  double scale = 1;
  std::vector<DrawOp> ops;

  bool operator==(const Layer&) const = default;
};

struct DrawOp {
  std::variant<StrokeArc, FillRoundedRect, StrokeRoundedRect, StrokeLoop, Text, Layer> shape;

  bool operator==(const DrawOp&) const = default;
};

/// A picture: its operations from back to front.
struct Drawing {
  Size size;
  std::vector<DrawOp> ops;

  bool operator==(const Drawing&) const = default;

  template <class Shape>
  void add(Shape shape) {
    ops.push_back(DrawOp{.shape = std::move(shape)});
  }
};

/// The space that one line of text takes, in points.
struct TextExtent {
  double width = 0;      ///< advance, to where the next text may begin
  double ascent = 0;     ///< above the base line
  double descent = 0;    ///< below it
  double capHeight = 0;  ///< of capitals and digits above the base line

  bool operator==(const TextExtent&) const = default;
};

/// Measures text as the desktop's painter draws it. This base stands in where nothing is drawn.
class TextMeasurer : public Pinned {
 public:
  [[nodiscard]] virtual TextExtent measure(std::string_view /*text*/,
                                           const FontStyle& /*font*/) const {
    return {};
  }
};

}  // namespace marigold
