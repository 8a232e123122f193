#include "TrayIcon.h"

#include <algorithm>
#include <utility>

#include <QtGui/QGuiApplication>
#include <QtGui/QIcon>
#include <QtGui/QIconEngine>
#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <QtGui/QPixmap>
#include <QtWidgets/QApplication>
#include <QtWidgets/QSystemTrayIcon>
#include <QtWidgets/QWidget>

#include "PlainText.h"
#include "QtPainter.h"

namespace marigold {

namespace {

// Draws anew for whatever size a tray gives its icons: a picture that is scaled is not sharp.
class DrawingIcon final : public QIconEngine {
 public:
  explicit DrawingIcon(Drawing drawing) : drawing_(std::move(drawing)) {}

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode /*mode*/,
             QIcon::State /*state*/) override {
    const double ratio = painter->device()->devicePixelRatioF();
    const int side = std::min(rect.width(), rect.height());
    QImage image = rasterizeSquare(drawing_, qRound(side * ratio));
    image.setDevicePixelRatio(ratio);
    painter->drawImage(
        rect.topLeft() + QPoint((rect.width() - side) / 2, (rect.height() - side) / 2), image);
  }
  QPixmap pixmap(const QSize& size, QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
    return QPixmap::fromImage(rasterizeSquare(drawing_, std::min(size.width(), size.height())));
  }
  [[nodiscard]] QIconEngine* clone() const override { return new DrawingIcon(drawing_); }

 private:
  Drawing drawing_;
};

// The icon's window is the toolkit's own and has no name for assistive technology.
void describeWindow(const StatusItemContent& content) {
  for (QWidget* const window : QApplication::topLevelWidgets()) {
    if (window->inherits("QSystemTrayIconSys")) {
      window->setAccessibleName(QString::fromStdString(content.accessibilityLabel));
      window->setAccessibleDescription(QString::fromStdString(content.accessibilityValue));
    }
  }
}

}  // namespace

TrayIcon::TrayIcon() : icon_(std::make_unique<QSystemTrayIcon>()) {
  QObject::connect(
      icon_.get(), &QSystemTrayIcon::activated, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::MiddleClick || !onClick) {
          return;
        }
        // The second click of two quick ones has a reason of its own.
        const bool right = reason == QSystemTrayIcon::Context;
        const auto held = QGuiApplication::keyboardModifiers();
        onClick({.button = right ? StatusItemClick::Button::right : StatusItemClick::Button::left,
                 .controlHeld = held.testFlag(Qt::ControlModifier),
                 .at = place()});
      });
}

TrayIcon::~TrayIcon() = default;

void TrayIcon::setContent(const StatusItemContent& content) {
  if (content == content_) {
    return;
  }
  if (content.square != content_.square) {
    icon_->setIcon(QIcon(new DrawingIcon(content.square)));
  }
  icon_->setToolTip(plainToolTip(content.tooltip));
  content_ = content;
  icon_->show();
  describeWindow(content_);
}

std::optional<Point> TrayIcon::place() const {
  const QRect area = icon_->geometry();
  if (area.isEmpty()) {
    return std::nullopt;
  }
  return Point{.x = area.x() + area.width() / 2.0, .y = area.y() + area.height() / 2.0};
}

}  // namespace marigold
