#pragma once

#include <functional>
#include <optional>
#include <string>

#include <QtCore/QPoint>
#include <QtGui/QImage>
#include <QtWidgets/QWidget>

#include "X11.h"
#include "ports/StatusItem.h"

namespace marigold {

/// The status item where there is no tray: a small window that shows the mark above all others and
/// never takes the keyboard. It can be dragged, and keeps its place where the desktop lets windows
/// have one. To be shown once it has content.
class Strip final : public QWidget {
 public:
  /// Where the user put the strip, "x,y" of its corner; kept from run to run by whoever made it.
  struct Place {
    std::function<std::optional<std::string>()> load;
    std::function<void(std::string)> save;
  };

  explicit Strip(Place place);

  /// Clicks, at the middle of the lower edge, below which something may open.
  std::function<void(const StatusItemClick&)> onClick;

  void setContent(const StatusItemContent& content);
  /// Whether the mark is one for a dark ground.
  void setDark(bool dark);

  /// As a click that assistive technology does.
  void click(StatusItemClick::Button button, bool controlHeld = false);
  [[nodiscard]] QString spokenValue() const { return accessibleDescription(); }

 protected:
  void closeEvent(QCloseEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;

 private:
  void put();
  void follow(const QScreen* screen);
  void shape();
  [[nodiscard]] bool translucent() const;

  Place place_;
  std::optional<QPoint> wanted_;   ///< by the user; it may be on no screen for the time being
  std::optional<QPoint> pressed_;  ///< where on the strip
  bool dragged_ = false;
  bool dark_ = true;
  Drawing mark_;
  QImage picture_;
  X11Selection compositor_;
};

}  // namespace marigold
