#include "linux/system/ScreenPlaces.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include <QtGui/QGuiApplication>
#include <QtGui/QScreen>
#include <QtWidgets/QWidget>

#include "linux/system/X11.h"

namespace marigold {

namespace {

constexpr int margin = 8;     // to the edges of the work area
constexpr int distance = 6;   // to the item
constexpr int iconSide = 48;  // of the largest icon of a tray

int clamped(int value, int least, int most) {
  return std::max(std::min(value, most), least);  // least also if there is no room
}

QPoint within(const QRect& area, const QPoint& wanted, const QSize& size) {
  return {clamped(wanted.x(), area.left(), area.left() + area.width() - size.width()),
          clamped(wanted.y(), area.top(), area.top() + area.height() - size.height())};
}

const QScreen& screenAt(QPoint place) {
  const QScreen* const screen = QGuiApplication::screenAt(place);
  return screen != nullptr ? *screen : *QGuiApplication::primaryScreen();
}

bool onWayland() {
  return QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}

int squaredLength(QPoint way) {
  return QPoint::dotProduct(way, way);
}

}  // namespace

QPoint fromRootPixels(QPoint pixels) {
  for (const QScreen* const screen : QGuiApplication::screens()) {
    // A screen's corner is in pixels of the root window, its size is not.
    const QRect area = screen->geometry();
    const double ratio = screen->devicePixelRatio();
    if (QRectF(area.topLeft(), area.size().toSizeF() * ratio).contains(pixels)) {
      return area.topLeft() + (QPointF(pixels - area.topLeft()) / ratio).toPoint();
    }
  }
  return pixels;
}

std::optional<QRect> placeOf(QWidget& window) {
  if (onWayland()) {
    return std::nullopt;
  }
  const auto pixels = x11Place(static_cast<std::uint32_t>(window.winId()));
  return QRect(pixels ? fromRootPixels(*pixels) : window.pos(), window.size());
}

void settleAt(QPoint place, QWidget& window) {
  const QRect screen = screenAt(place).geometry();
  const QPointF within = (place - screen.topLeft()).toPointF() * screenAt(place).devicePixelRatio();
  x11Move(static_cast<std::uint32_t>(window.winId()), screen.topLeft() + within.toPoint());
}

QRect workArea(QPoint place) {
  const QScreen& screen = screenAt(place);
  const QRect whole = screen.geometry();
  const QRect available = screen.availableGeometry();
  if (available != whole) {
    return available;
  }
  // Of several screens the toolkit does not know it.
  const double ratio = screen.devicePixelRatio();
  const QRect left = x11WorkArea({whole.topLeft(), (whole.size().toSizeF() * ratio).toSize()});
  return {whole.topLeft() + ((left.topLeft() - whole.topLeft()).toPointF() / ratio).toPoint(),
          (left.size().toSizeF() / ratio).toSize()};
}

std::optional<QRect> clickedIcon(QPoint told, QPoint pointer) {
  // Under Wayland a host tells a place within its own window, also to a client that is shown by an
  // X11 server there.
  if (onWayland() || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
    return std::nullopt;
  }
  QPoint place = fromRootPixels(told);
  for (const QPoint other : {told, fromRootPixels(told * qGuiApp->devicePixelRatio())}) {
    if (squaredLength(other - pointer) < squaredLength(place - pointer)) {
      place = other;
    }
  }
  // One within an icon at the very corner is within the host's window, too, or none at all.
  const bool corner = told.x() < iconSide && told.y() < iconSide;
  if ((corner && squaredLength(place - pointer) > iconSide * iconSide) ||
      QGuiApplication::screenAt(place) == nullptr ||
      !QGuiApplication::screenAt(place)->geometry().contains(place)) {
    return std::nullopt;
  }
  // What opens in the work area does not cover an icon in a panel that is outside.
  const int around = workArea(place).contains(place) ? iconSide / 2 : 0;
  return QRect(place, QSize(1, 1)).adjusted(-around, -around, around, around);
}

QRect openingAt(const ItemPlace& item, const QSize& size) {
  const QRect area = item.area.value_or(QRect());
  const QRect room =
      workArea(item.area ? area.center() : QGuiApplication::primaryScreen()->geometry().center())
          .adjusted(margin, margin, -margin, -margin);
  if (!item.area) {
    const QSize fitting = size.boundedTo({size.width(), room.height()});
    return {{room.left() + room.width() - fitting.width(), room.top()}, fitting};
  }
  QRect below = room;
  below.setTop(std::max(room.top(), area.bottom() + 1 + distance));
  QRect above = room;
  above.setBottom(std::min(room.bottom(), area.top() - 1 - distance));
  QRect right = room;
  right.setLeft(std::max(room.left(), area.right() + 1 + distance));
  QRect left = room;
  left.setRight(std::min(room.right(), area.left() - 1 - distance));
  const bool upper = area.center().y() < screenAt(area.center()).geometry().center().y();
  std::array<QRect, 4> sides{upper ? below : above, upper ? above : below, right, left};
  if (area.center().x() < room.left() || area.center().x() > room.right()) {
    std::ranges::rotate(sides, sides.begin() + 2);  // in a panel at the side
  }
  const auto* side = std::ranges::find_if(sides, [&](const QRect& each) {
    return each.width() >= size.width() && each.height() >= size.height();
  });
  if (side == sides.end()) {
    side = std::ranges::max_element(sides, {}, [&](const QRect& each) {
      return each.width() >= size.width() ? each.height() : 0;
    });
  }
  const QSize fitting = size.boundedTo({size.width(), std::max(side->height(), 1)});
  // As near to the item as it goes, centred on it.
  const QSize over = (area.size() - fitting) / 2;
  const QPoint wanted = area.topLeft() + QPoint(over.width(), over.height());
  return {within(*side, wanted, fitting), fitting};
}

QPoint placeOnScreen(const QPoint& wanted, const QSize& size) {
  return within(workArea(QRect(wanted, size).center()), wanted, size);
}

}  // namespace marigold
