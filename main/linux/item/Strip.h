#pragma once

#include <functional>
#include <optional>
#include <string>

#include <QtCore/QPoint>
#include <QtGui/QImage>
#include <QtWidgets/QWidget>

#include "base/EventLoop.h"
#include "linux/system/X11.h"
#include "ports/StatusItem.h"

namespace marigold {

/// The status item where there is no tray: a small window that shows the mark above all others and
/// does not take the keyboard by itself; where the user leads it there, Enter and Space click it,
/// and the Menu key opens its menu. It can be dragged, and keeps its place where the desktop lets
/// windows have one. To be shown once it has content.
class Strip final : public QWidget {
 public:
  /// Where the user put the strip, "x,y" of its corner; kept from run to run by whoever made it.
  struct Place {
    std::function<std::optional<std::string>()> load;
    std::function<void(std::string)> save;
  };

  /// `loop` must outlive the strip.
  Strip(EventLoop& loop, Place place);

  /// Clicks, with the strip's place where that is known.
  std::function<void(const StatusItemClick&, const std::optional<QRect>& area)> onClick;

  void setContent(const StatusItemContent& content);
  /// Whether the mark is one for a dark ground.
  void setDark(bool dark);

  /// As a click that assistive technology does.
  void click(StatusItemClick::Button button, bool controlHeld = false);
  [[nodiscard]] QString spokenValue() const { return accessibleDescription(); }

 protected:
  void closeEvent(QCloseEvent* event) override;
  void moveEvent(QMoveEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;

 private:
  void put();
  void remember();
  void follow(const QScreen* screen);
  [[nodiscard]] bool translucent() const;

  EventLoop& loop_;
  Place place_;
  std::optional<QPoint> wanted_;   ///< by the user; it may be on no screen for the time being
  QPoint put_;                     ///< where it was moved from here
  Instant answered_;               ///< when the window manager's answer to that has come
  Timer moved_;                    ///< by the window manager since; the place is still to be saved
  std::optional<QPoint> pressed_;  ///< where on the strip
  bool dragged_ = false;
  bool settled_ = false;  ///< it was placed since it is shown
  bool ring_ = false;     ///< whether the focus is shown: the mouse did not bring it
  bool dark_ = true;
  Drawing mark_;
  QImage picture_;
  X11Selection compositor_;
};

}  // namespace marigold
