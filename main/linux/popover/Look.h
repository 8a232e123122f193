#pragma once

#include <cstdint>

#include <QtGui/QColor>
#include <QtGui/QFont>
#include <QtGui/QPalette>

#include "popover/PopoverTheme.h"
#include "ports/PopoverContent.h"

QT_BEGIN_NAMESPACE
class QPainter;
class QRect;
class QRectF;
class QWidget;
QT_END_NAMESPACE

// How the popover's widgets are painted. Lengths are told in points of an interface font of 13
// pixels and grow with the font.

namespace marigold {

/// What every widget of one popover paints with. The popover changes it, and has all repainted.
class Look {
 public:
  MarigoldTheme theme;

  [[nodiscard]] const PopoverColors& colors() const noexcept { return popoverColors(theme); }
  /// For native widgets among ours, and what they open.
  [[nodiscard]] QPalette palette() const;
};

/// `points` in the toolkit's pixels.
[[nodiscard]] double scaledExactly(double points);
/// The same as a whole number.
[[nodiscard]] int scaled(double points);

/// The interface font at `size` times its own.
[[nodiscard]] QFont interfaceFont(double size = 1, QFont::Weight weight = QFont::Normal);

enum class Glyph : std::uint8_t {
  refresh,
  done,
  settings,
  back,
  arrowUp,
  arrowDown,
  chevronUp,
  chevronDown,
  chevronForward,
};

/// Paints a glyph of 16 points a side around the middle of `box`, mirrored for texts from right to
/// left where it points along them.
void paintGlyph(QPainter& painter, Glyph glyph, const QRectF& box, const QColor& color,
                bool rightToLeft = false);

/// The ring around `outline`, within `widget`, while the keyboard leads there.
void paintFocusRing(QPainter& painter, const QWidget& widget, const QRectF& outline, double radius,
                    const Look& look);

/// Paints `text` at `place` with alignment and other flags of the toolkit's. However the layout
/// runs, a text runs its own way, or its last stop would stand before it.
void paintText(QPainter& painter, const QRect& place, int flags, const QString& text);
/// Paints a line of `text` at the start of `box`, mirrored as `widget` is.
void paintLine(QPainter& painter, const QWidget& widget, const QRect& box, const QString& text);

/// Paints a rounded ground with an edge inside `box`.
void paintPanel(QPainter& painter, const QRectF& box, double radius, const Color& ground,
                const Color& edge);

}  // namespace marigold
