#include "ScreenPlaces.h"

#include <algorithm>

#include <QtGui/QGuiApplication>
#include <QtGui/QScreen>

namespace marigold {

namespace {

constexpr int margin = 8;     // to the edges of the screen
constexpr int distance = 16;  // to the point, in the middle of an icon
constexpr int iconSide = 48;  // of the largest icon of a tray

// Under Wayland a host tells a place within its own window, also to a client that is shown by an
// X11 server there. A place within an icon at the very corner is one of these, too, or none at all.
const QScreen* screenOfItem(const Point& at) {
  if (QGuiApplication::platformName().startsWith(QLatin1String("wayland")) ||
      !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") || (at.x < iconSide && at.y < iconSide)) {
    return nullptr;
  }
  const QPoint point = QPointF(at.x, at.y).toPoint();
  const QScreen* const screen = QGuiApplication::screenAt(point);
  return screen != nullptr && screen->geometry().contains(point) ? screen : nullptr;
}

QPoint within(const QRect& area, const QPoint& wanted, const QSize& size) {
  const auto clamped = [](int value, int least, int most) {
    return std::max(std::min(value, most), least);  // least also if there is no room
  };
  return {clamped(wanted.x(), area.left(), area.left() + area.width() - size.width()),
          clamped(wanted.y(), area.top(), area.top() + area.height() - size.height())};
}

}  // namespace

Point fromRootPixels(Point pixels) {
  for (const QScreen* const screen : QGuiApplication::screens()) {
    // A screen's corner is in pixels of the root window, its size is not.
    const QRectF area = screen->geometry();
    const double ratio = screen->devicePixelRatio();
    if (QRectF(area.topLeft(), area.size() * ratio).contains(pixels.x, pixels.y)) {
      return {.x = area.left() + (pixels.x - area.left()) / ratio,
              .y = area.top() + (pixels.y - area.top()) / ratio};
    }
  }
  return pixels;
}

QRect roomNear(std::optional<Point> at) {
  const QScreen* const screen = at ? screenOfItem(*at) : nullptr;
  return (screen != nullptr ? screen : QGuiApplication::primaryScreen())
      ->availableGeometry()
      .adjusted(margin, margin, -margin, -margin);
}

QPoint placeNear(std::optional<Point> at, const QSize& size) {
  const QRect room = roomNear(at);
  QPoint place(room.left() + room.width() - size.width(), room.top());
  if (at) {
    if (const QScreen* const screen = screenOfItem(*at)) {
      const QPoint point = QPointF(at->x, at->y).toPoint();
      const bool below = point.y() < screen->geometry().center().y();
      place = {point.x() - size.width() / 2,
               below ? point.y() + distance : point.y() - distance - size.height()};
    }
  }
  return within(room, place, size);
}

QPoint placeOnScreen(const QPoint& wanted, const QSize& size) {
  const QScreen* screen = QGuiApplication::screenAt(QRect(wanted, size).center());
  if (screen == nullptr) {
    screen = QGuiApplication::primaryScreen();
  }
  return within(screen->availableGeometry(), wanted, size);
}

}  // namespace marigold
