#include "linux/popover/Look.h"

#include <initializer_list>
#include <utility>

#include <QtCore/QRectF>
#include <QtGui/QGuiApplication>
#include <QtGui/QPainter>
#include <QtGui/QPainterPath>
#include <QtGui/QScreen>
#include <QtWidgets/QApplication>
#include <QtWidgets/QStyle>
#include <QtWidgets/QWidget>

#include "linux/system/QtPainter.h"

namespace marigold {

namespace {

constexpr double nominalFontPixels = 13;
constexpr double pointsPerInch = 72;

double interfaceFontPixels() {
  const QFont font = QApplication::font();
  return font.pixelSize() > 0
             ? font.pixelSize()
             : font.pointSizeF() * QGuiApplication::primaryScreen()->logicalDotsPerInchY() /
                   pointsPerInch;
}

QPainterPath line(std::initializer_list<QPointF> points) {
  QPainterPath path;
  for (const QPointF& point : points) {
    if (path.elementCount() == 0) {
      path.moveTo(point);
    } else {
      path.lineTo(point);
    }
  }
  return path;
}

// Around the origin, from -8 to 8.
QPainterPath outline(Glyph glyph) {
  QPainterPath path;
  switch (glyph) {
    case Glyph::refresh: {
      constexpr double radius = 5.25;
      const QRectF circle(-radius, -radius, 2 * radius, 2 * radius);
      path.arcMoveTo(circle, -28);
      path.arcTo(circle, -28, -304);
      const QPointF end = path.currentPosition();
      path.addPath(line({end + QPointF(0.6, -4.4), end, end + QPointF(-4.4, 0.2)}));
      return path;
    }
    case Glyph::done:
      return line({{-5, 0.5}, {-1.5, 4}, {5, -4}});
    case Glyph::settings: {
      constexpr double knob = 2;
      for (const auto& [y, x] : {std::pair{-3.5, 2.25}, std::pair{3.5, -2.25}}) {
        path.addPath(line({{-6.25, y}, {x - knob, y}}));
        path.addEllipse(QPointF(x, y), knob, knob);
        path.addPath(line({{x + knob, y}, {6.25, y}}));
      }
      return path;
    }
    case Glyph::back:
      return line({{2.5, -5}, {-2.5, 0}, {2.5, 5}});
    case Glyph::arrowUp:
      path = line({{0, 4.5}, {0, -4.5}});
      path.addPath(line({{-3.5, -1}, {0, -4.5}, {3.5, -1}}));
      return path;
    case Glyph::arrowDown:
      path = line({{0, -4.5}, {0, 4.5}});
      path.addPath(line({{-3.5, 1}, {0, 4.5}, {3.5, 1}}));
      return path;
    case Glyph::chevronUp:
      return line({{-3.5, 1.75}, {0, -1.75}, {3.5, 1.75}});
    case Glyph::chevronDown:
      return line({{-3.5, -1.75}, {0, 1.75}, {3.5, -1.75}});
    case Glyph::chevronForward:
      return line({{-1.75, -3.5}, {1.75, 0}, {-1.75, 3.5}});
  }
  return path;
}

bool pointsAlongTexts(Glyph glyph) {
  return glyph == Glyph::back || glyph == Glyph::chevronForward;
}

}  // namespace

QPalette Look::palette() const {
  const PopoverColors& use = colors();
  QPalette palette(toQt(use.control), toQt(use.card));
  const auto set = [&](QPalette::ColorRole role, const Color& color) {
    palette.setColor(role, toQt(color));
    Color faint = color;
    faint.opacity *= use.disabled;
    palette.setColor(QPalette::Disabled, role, toQt(faint));
  };
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ToolTipText}) {
    set(role, use.text);
  }
  set(QPalette::ButtonText, use.controlText);
  set(QPalette::PlaceholderText, use.secondary);
  set(QPalette::HighlightedText, use.onAccent);
  for (const auto role : {QPalette::Base, QPalette::ToolTipBase}) {
    palette.setColor(role, toQt(use.card));
  }
  palette.setColor(QPalette::Window, toQt(use.ground));
  palette.setColor(QPalette::Highlight, toQt(use.accent));
  return palette;
}

double scaledExactly(double points) {
  return points * interfaceFontPixels() / nominalFontPixels;
}

int scaled(double points) {
  return qRound(scaledExactly(points));
}

QFont interfaceFont(double size, QFont::Weight weight) {
  QFont font = QApplication::font();
  font.setWeight(weight);
  if (font.pointSizeF() > 0) {
    font.setPointSizeF(font.pointSizeF() * size);
  } else {
    font.setPixelSize(qRound(font.pixelSize() * size));
  }
  return font;
}

void paintGlyph(QPainter& painter, Glyph glyph, const QRectF& box, const QColor& color,
                bool rightToLeft) {
  constexpr double width = 1.5;
  const double scale = scaledExactly(1);
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(box.center());
  painter.scale(rightToLeft && pointsAlongTexts(glyph) ? -scale : scale, scale);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(color, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.drawPath(outline(glyph));
  painter.restore();
}

void paintFocusRing(QPainter& painter, const QWidget& widget, const QRectF& outline, double radius,
                    const Look& look) {
  if (!widget.hasFocus() || !widget.window()->testAttribute(Qt::WA_KeyboardFocusChange)) {
    return;
  }
  constexpr double width = 2;
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(toQt(look.colors().focusRing), width));
  painter.drawRoundedRect(outline.adjusted(width / 2, width / 2, -width / 2, -width / 2),
                          radius - width / 2, radius - width / 2);
}

void paintText(QPainter& painter, const QRect& place, int flags, const QString& text) {
  painter.setLayoutDirection(text.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
  painter.drawText(place, flags, text);
}

void paintLine(QPainter& painter, const QWidget& widget, const QRect& box, const QString& text) {
  const Qt::LayoutDirection direction = widget.layoutDirection();
  paintText(painter, QStyle::visualRect(direction, widget.rect(), box),
            static_cast<int>(Qt::AlignVCenter | Qt::TextSingleLine |
                             QStyle::visualAlignment(direction, Qt::AlignLeft)),
            text);
}

void paintPanel(QPainter& painter, const QRectF& box, double radius, const Color& ground,
                const Color& edge) {
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(toQt(ground));
  painter.drawRoundedRect(box, radius, radius);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(toQt(edge), 1));
  painter.drawRoundedRect(box.adjusted(0.5, 0.5, -0.5, -0.5), radius - 0.5, radius - 0.5);
}

}  // namespace marigold
