#pragma once

#include <optional>

#include <QtCore/QPoint>
#include <QtCore/QRect>
#include <QtCore/QSize>

#include "Drawing.h"

// Where windows go. Points are the toolkit's: device-independent, over all screens.

namespace marigold {

/// The toolkit's point for one in pixels of the X11 root window, as tray hosts tell them.
[[nodiscard]] Point fromRootPixels(Point pixels);

/// The part of the screen in which a window can open at a status item that was clicked at `at`.
[[nodiscard]] QRect roomNear(std::optional<Point> at);

/// Where a window of `size` opens at a status item that was clicked at `at`: below or above it,
/// wholly on its screen. At the top right of the primary screen where the point is absent or cannot
/// be the item's, because the desktop does not say where things are on the screen.
[[nodiscard]] QPoint placeNear(std::optional<Point> at, const QSize& size);

/// The place nearest to `wanted` at which a window of `size` is wholly on a screen.
[[nodiscard]] QPoint placeOnScreen(const QPoint& wanted, const QSize& size);

}  // namespace marigold
