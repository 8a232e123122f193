#include "linux/item/DrawingIcon.h"

#include <algorithm>
#include <utility>

#include <QtGui/QIcon>
#include <QtGui/QIconEngine>
#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <QtGui/QPixmap>

#include "linux/system/QtPainter.h"

namespace marigold {

namespace {

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

}  // namespace

QIcon drawingIcon(Drawing drawing) {
  return QIcon(new DrawingIcon(std::move(drawing)));
}

}  // namespace marigold
