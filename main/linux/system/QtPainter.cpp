#include "linux/system/QtPainter.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include <QtGui/QColor>
#include <QtGui/QGlyphRun>
#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <QtGui/QPainterPath>
#include <QtGui/QPen>

#include "linux/system/Typesetter.h"

namespace marigold {

namespace {

/// Draws operations in device pixels.
class Brush {
 public:
  Brush(QPainter& painter, QPointF origin, double scale)
      : painter_(painter), origin_(origin), scale_(scale) {}

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
    const double radius = arc.radius * scale_;
    const QPointF center = at(arc.center);
    const QRectF circle(center.x() - radius, center.y() - radius, 2 * radius, 2 * radius);
    QPainterPath path;
    const double from = 90 - 360 * arc.start;  // counter-clockwise from the right, in degrees
    path.arcMoveTo(circle, from);
    path.arcTo(circle, from, -360 * sweep);
    if (sweep == 1) {
      path.closeSubpath();
    }
    stroke(path, arc.color, arc.width, arc.dashes, arc.roundCaps ? Qt::RoundCap : Qt::FlatCap);
  }

  void operator()(const FillRoundedRect& rect) const {
    const QRectF bounds(at(rect.origin), size(rect.size));
    QPainterPath path = rounded(bounds, rect.cornerRadius);
    if (rect.level < 1) {
      QPainterPath filled;
      const double height = bounds.height() * std::max(rect.level, 0.0);
      filled.addRect(bounds.left(), bounds.bottom() - height, bounds.width(), height);
      path = path.intersected(filled);
    }
    painter_.fillPath(path, toQt(rect.color));
  }

  void operator()(const StrokeRoundedRect& rect) const {
    stroke(rounded(QRectF(at(rect.origin), size(rect.size)), rect.cornerRadius), rect.color,
           rect.width, rect.dashes);
  }

  void operator()(const StrokeLoop& loop) const {
    QPolygonF points;
    for (const Point& point : loop.points) {
      points.append(at(point));
    }
    QPainterPath path;
    path.addPolygon(points);
    path.closeSubpath();
    stroke(path, loop.color, loop.width, {});
  }

  void operator()(const Text& text) const {
    const double pixels = text.font.size * scale_;
    if (pixels <= 0) {
      return;
    }
    const QPointF start = at(text.baseline);
    const QPointF snapped(std::round(start.x()), std::round(start.y()));
    painter_.setPen(toQt(text.color));
    for (const Typesetter::Glyphs& glyphs :
         Typesetter::shared().layOut(text.text, text.font).glyphs) {
      QList<QPointF> places = glyphs.places;
      for (QPointF& place : places) {
        place *= pixels / Typesetter::layoutPixels;
      }
      QGlyphRun run;
      run.setRawFont(Typesetter::shared().sized(glyphs.font, pixels));
      run.setGlyphIndexes(glyphs.indexes);
      run.setPositions(places);
      painter_.drawGlyphRun(snapped, run);
    }
  }

  void operator()(const Layer& layer) const {
    Brush(painter_, at(layer.origin), scale_ * layer.scale).draw(layer.ops);
  }

 private:
  [[nodiscard]] QPointF at(const Point& point) const {
    return origin_ + QPointF(point.x, point.y) * scale_;
  }
  [[nodiscard]] QSizeF size(const Size& size) const {
    return QSizeF(size.width, size.height) * scale_;
  }
  [[nodiscard]] QPainterPath rounded(const QRectF& bounds, double cornerRadius) const {
    const double radius =
        std::min({cornerRadius * scale_, bounds.width() / 2, bounds.height() / 2});
    QPainterPath path;
    path.addRoundedRect(bounds, radius, radius);
    return path;
  }
  void stroke(const QPainterPath& path, const Color& color, double width, const Dashes& dashes,
              Qt::PenCapStyle caps = Qt::FlatCap) const {
    QPen pen(toQt(color), width * scale_, Qt::SolidLine, caps, Qt::RoundJoin);
    if (dashes.dash > 0 && dashes.gap > 0) {
      pen.setDashPattern({dashes.dash / width, dashes.gap / width});  // in widths of the line
    }
    painter_.strokePath(path, pen);
  }

  QPainter& painter_;
  QPointF origin_;
  double scale_;
};

QSize pixelSize(const Drawing& drawing, double scale) {
  // A size that is whole but for rounding is not one pixel more.
  const auto up = [scale](double length) {
    return static_cast<int>(std::ceil(length * scale - 1e-6));
  };
  return {up(drawing.size.width), up(drawing.size.height)};
}

QImage draw(const Drawing& drawing, QSize extent, QPointF origin, double scale) {
  if (extent.isEmpty()) {
    return {};
  }
  QImage image(extent, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  Brush(painter, origin, scale).draw(drawing.ops);
  return image;
}

}  // namespace

QColor toQt(const Color& color) {
  const auto component = [](double value) {
    return static_cast<float>(std::clamp(value, 0.0, 1.0));
  };
  return QColor::fromRgbF(component(color.red), component(color.green), component(color.blue),
                          component(color.opacity));
}

QImage rasterize(const Drawing& drawing, double scale) {
  return draw(drawing, pixelSize(drawing, scale), {}, scale);
}

QImage rasterizeSquare(const Drawing& drawing, int pixels) {
  const double scale = pixels / std::max({drawing.size.width, drawing.size.height, 1e-6});
  const QPointF origin((pixels - drawing.size.width * scale) / 2,
                       (pixels - drawing.size.height * scale) / 2);
  return draw(drawing, QSize(pixels, pixels), origin, scale);
}

TextExtent QtTextMeasurer::measure(std::string_view text, const FontStyle& font) const {
  const Typesetter::Face& face = Typesetter::shared().face(font.weight);
  const double scale = font.size / Typesetter::layoutPixels;
  return {.width = Typesetter::shared().layOut(text, font).width * scale,
          .ascent = face.sample.ascent() * scale,
          .descent = face.sample.descent() * scale,
          .capHeight = face.capHeight * scale};
}

}  // namespace marigold
