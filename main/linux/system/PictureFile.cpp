#include "linux/system/PictureFile.h"

#include <string>

#include <QtGui/QFont>
#include <QtGui/QGuiApplication>
#include <QtGui/QImage>
#include <QtGui/QPixmap>
#include <QtWidgets/QApplication>

#include "linux/popover/PopoverPanel.h"
#include "linux/system/OffscreenToolkit.h"
#include "linux/system/QtPainter.h"
#include "popover/DesktopTexts.h"

namespace marigold {

namespace {

constexpr double pixelsPerPoint = 2;
constexpr int fontPixels = 13;

bool savePicture(const Picture& picture, const std::string& path) {
  const OffscreenToolkit<QGuiApplication> toolkit;
  return rasterize(picture(QtTextMeasurer()), pixelsPerPoint)
      .save(QString::fromStdString(path), "PNG");
}

bool savePopoverPicture(const PopoverContent& content, const std::string& path) {
  qputenv("QT_SCALE_FACTOR", QByteArray::number(pixelsPerPoint));
  const OffscreenToolkit<QApplication> toolkit;
  QFont font = QApplication::font();
  font.setPixelSize(fontPixels);
  QApplication::setFont(font);
  PopoverPanel panel;
  panel.setAttribute(Qt::WA_TranslucentBackground);
  panel.setTranslucent(true);
  panel.take(content);
  panel.resize(panel.sizeHint());
  return panel.grab().save(QString::fromStdString(path), "PNG");
}

}  // namespace

PictureFiles pictureFiles() {
  return {.save = savePicture,
          .savePopover = savePopoverPicture,
          .texts = linuxTexts,
          .offersBarColors = true};
}

}  // namespace marigold
