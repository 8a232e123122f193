#pragma once

#include <optional>

#include <QtCore/QPoint>
#include <QtCore/QRect>
#include <QtCore/QSize>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

// Where windows go. Places are the toolkit's: device-independent, over all screens.

namespace marigold {

/// Where the status item is on the screen, for what opens at it: told by the item at each click, or
/// when its menu opens. Nothing while it is not known, as on desktops that do not tell a program
/// where its things are.
struct ItemPlace {
  std::optional<QRect> area;
};

/// The toolkit's place for one in pixels of the X11 root window.
[[nodiscard]] QPoint fromRootPixels(QPoint pixels);

/// Where `window` really is, which the toolkit may believe to be elsewhere. Nothing where the
/// desktop does not say.
[[nodiscard]] std::optional<QRect> placeOf(QWidget& window);

/// Has a window that has just appeared stay at `place`, and the toolkit know where it is: it is
/// told only of moves that its windows make themselves, and a window manager may move a window in
/// its frame's place.
void settleAt(QPoint place, QWidget& window);

/// The part of the screen at `place`, the primary one when it is on none, that no panel takes.
[[nodiscard]] QRect workArea(QPoint place);

/// The area of an icon that a tray host says was clicked at `told`, while the pointer is at
/// `pointer`. Hosts tell pixels of the root window or units of their own toolkit, whichever comes
/// closer. Nothing for what cannot be a place on the screen, such as one within the host's window.
[[nodiscard]] std::optional<QRect> clickedIcon(QPoint told, QPoint pointer);

/// Where something of `size` opens at the status item: below or above it, or beside it, but never
/// over it; less high than asked for where there is not room enough. At the top right of the
/// primary screen where the item's place is not known.
[[nodiscard]] QRect openingAt(const ItemPlace& item, const QSize& size);

/// The place nearest to `wanted` at which a window of `size` is wholly on a screen.
[[nodiscard]] QPoint placeOnScreen(const QPoint& wanted, const QSize& size);

}  // namespace marigold
