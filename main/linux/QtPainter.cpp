#include "QtPainter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <QtCore/QCoreApplication>
#include <QtGui/QFont>
#include <QtGui/QFontMetricsF>
#include <QtGui/QGlyphRun>
#include <QtGui/QGuiApplication>
#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <QtGui/QPainterPath>
#include <QtGui/QPen>
#include <QtGui/QRawFont>
#include <QtGui/QTextLayout>

namespace marigold {

namespace {

// Texts are laid out once at this size in pixels, and the glyphs' places are scaled from there.
// Laid out at each size anew, rounding would make a text wider at one scale than at another.
constexpr int layoutPixels = 256;

/// Glyphs of one font with their places from the start of the base line, in layout pixels.
struct Glyphs {
  QRawFont font;
  QList<quint32> indexes;
  QList<QPointF> places;
};

/// A text that is laid out, in layout pixels.
struct LaidOut {
  std::vector<Glyphs> glyphs;
  double width = 0;
};

/// One weight of the interface font.
struct Face {
  QFont font;
  QRawFont sample;
  double capHeight = 0;
  std::array<LaidOut, 10> digits;
  double digitWidth = 0;  ///< of the widest
};

QFont::Weight toQt(FontStyle::Weight weight) {
  switch (weight) {
    case FontStyle::Weight::regular:
      return QFont::Normal;
    case FontStyle::Weight::medium:
      return QFont::Medium;
    case FontStyle::Weight::semibold:
      break;
  }
  return QFont::DemiBold;
}

/// What texts of the interface font look like; filled as they are asked for.
class Typesetter {
 public:
  const Face& face(FontStyle::Weight weight) {
    followInterfaceFont();
    Face& face = faces_.at(static_cast<std::size_t>(weight));
    if (face.digitWidth == 0) {
      fill(face, weight);
    }
    return face;
  }

  const LaidOut& layOut(std::string_view text, const FontStyle& style) {
    const Face& used = face(style.weight);
    std::string key;
    key += static_cast<char>(style.weight);
    key += style.monospacedDigits ? 'm' : 'p';
    key += text;
    if (const auto known = texts_.find(key); known != texts_.end()) {
      return known->second;
    }
    if (texts_.size() >= mostKept) {
      texts_.clear();
    }
    return texts_
        .emplace(std::move(key), style.monospacedDigits ? withEqualDigits(used, text)
                                                        : layOutPlainly(used.font, text))
        .first->second;
  }

  QRawFont sized(const QRawFont& font, double pixels) {
    const auto known = std::ranges::find_if(
        sized_, [&](const Sized& each) { return each.pixels == pixels && each.from == font; });
    if (known != sized_.end()) {
      return known->font;
    }
    if (sized_.size() >= mostKept) {
      sized_.clear();
    }
    QRawFont result = font;
    result.setPixelSize(pixels);
    sized_.push_back({.from = font, .pixels = pixels, .font = result});
    return result;
  }

 private:
  struct Sized {
    QRawFont from;
    double pixels = 0;
    QRawFont font;
  };

  static constexpr std::size_t mostKept = 256;

  // Fonts must not outlive the application, whose part they are.
  static void forget();

  void followInterfaceFont() {
    if (QString family = QGuiApplication::font().family(); family != family_) {
      if (family_.isEmpty()) {
        qAddPostRoutine(forget);
      }
      family_ = std::move(family);
      faces_ = {};
      texts_.clear();
      sized_.clear();
    }
  }

  void fill(Face& face, FontStyle::Weight weight) const {
    face.font = QFont(family_);
    face.font.setPixelSize(layoutPixels);
    face.font.setWeight(toQt(weight));
    // Stems keep their place along the line, which is what the scaled places ask for, and are sharp
    // across it. Coloured fringes would be wrong on a transparent ground.
    face.font.setHintingPreference(QFont::PreferVerticalHinting);
    face.font.setStyleStrategy(QFont::NoSubpixelAntialias);
    face.sample = QRawFont::fromFont(face.font);
    face.capHeight = QFontMetricsF(face.font).capHeight();
    for (std::size_t digit = 0; digit < face.digits.size(); ++digit) {
      const char character = static_cast<char>('0' + digit);
      face.digits.at(digit) = layOutPlainly(face.font, std::string_view(&character, 1));
      face.digitWidth = std::max(face.digitWidth, face.digits.at(digit).width);
    }
  }

  static LaidOut layOutPlainly(const QFont& font, std::string_view text) {
    LaidOut result;
    QTextLayout layout(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())), font);
    layout.beginLayout();
    const QTextLine line = layout.createLine();
    layout.endLayout();
    if (!line.isValid()) {
      return result;
    }
    result.width = line.horizontalAdvance();
    for (const QGlyphRun& run : line.glyphRuns()) {
      Glyphs glyphs{
          .font = run.rawFont(), .indexes = run.glyphIndexes(), .places = run.positions()};
      for (QPointF& place : glyphs.places) {
        place.ry() -= line.ascent();
      }
      result.glyphs.push_back(std::move(glyphs));
    }
    return result;
  }

  // The toolkit's fonts cannot be asked for digits of equal width, so each is set in the middle of
  // a cell as wide as the widest.
  static LaidOut withEqualDigits(const Face& face, std::string_view text) {
    LaidOut result;
    const auto append = [&result](const LaidOut& piece, double indent) {
      for (Glyphs glyphs : piece.glyphs) {
        for (QPointF& place : glyphs.places) {
          place.rx() += result.width + indent;
        }
        result.glyphs.push_back(std::move(glyphs));
      }
    };
    while (!text.empty()) {
      if (text.front() >= '0' && text.front() <= '9') {
        const LaidOut& digit = face.digits.at(static_cast<std::size_t>(text.front() - '0'));
        append(digit, (face.digitWidth - digit.width) / 2);
        result.width += face.digitWidth;
        text.remove_prefix(1);
      } else {
        const auto length = std::min(text.find_first_of("0123456789"), text.size());
        const LaidOut piece = layOutPlainly(face.font, text.substr(0, length));
        append(piece, 0);
        result.width += piece.width;
        text.remove_prefix(length);
      }
    }
    return result;
  }

  QString family_;
  std::array<Face, 3> faces_;
  std::unordered_map<std::string, LaidOut> texts_;
  std::vector<Sized> sized_;
};

// One for the process, like the toolkit's own fonts.
Typesetter& typesetter() {
  static Typesetter instance;
  return instance;
}

void Typesetter::forget() {
  typesetter() = Typesetter();
}

QColor toQt(const Color& color) {
  const auto component = [](double value) {
    return static_cast<float>(std::clamp(value, 0.0, 1.0));
  };
  return QColor::fromRgbF(component(color.red), component(color.green), component(color.blue),
                          component(color.opacity));
}

/// Draws operations in device pixels.
class Brush {
 public:
  /// `extent` is the space that everything lies in.
  Brush(QPainter& painter, QSize extent, QPointF origin, double scale)
      : painter_(painter), extent_(extent), origin_(origin), scale_(scale) {}

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
    path.arcMoveTo(circle, 90);  // the toolkit counts degrees counter-clockwise from the right
    path.arcTo(circle, 90, -360 * sweep);
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
    for (const Glyphs& glyphs : typesetter().layOut(text.text, text.font).glyphs) {
      QList<QPointF> places = glyphs.places;
      for (QPointF& place : places) {
        place *= pixels / layoutPixels;
      }
      QGlyphRun run;
      run.setRawFont(typesetter().sized(glyphs.font, pixels));
      run.setGlyphIndexes(glyphs.indexes);
      run.setPositions(places);
      painter_.drawGlyphRun(snapped, run);
    }
  }

  void operator()(const Layer& layer) const {
    const QPointF origin = at(layer.origin);
    const double scale = scale_ * layer.scale;
    if (layer.opacity >= 1) {
      Brush(painter_, extent_, origin, scale).draw(layer.ops);
      return;
    }
    QImage image(extent_, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    Brush(painter, extent_, origin, scale).draw(layer.ops);
    painter.end();
    const double opacity = painter_.opacity();
    painter_.setOpacity(opacity * std::max(layer.opacity, 0.0));
    painter_.drawImage(0, 0, image);
    painter_.setOpacity(opacity);
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
  QSize extent_;
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
  Brush(painter, extent, origin, scale).draw(drawing.ops);
  return image;
}

}  // namespace

void paint(const Drawing& drawing, QPainter& painter, double scale) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  Brush(painter, pixelSize(drawing, scale), {}, scale).draw(drawing.ops);
  painter.restore();
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
  const Face& face = typesetter().face(font.weight);
  const double scale = font.size / layoutPixels;
  return {.width = typesetter().layOut(text, font).width * scale,
          .ascent = face.sample.ascent() * scale,
          .descent = face.sample.descent() * scale,
          .capHeight = face.capHeight * scale};
}

}  // namespace marigold
