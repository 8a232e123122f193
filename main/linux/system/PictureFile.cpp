#include "linux/system/PictureFile.h"

#include <array>
#include <string>

#include <QtGui/QFont>
#include <QtGui/QGuiApplication>
#include <QtGui/QImage>
#include <QtGui/QPixmap>
#include <QtWidgets/QApplication>

#include "linux/popover/PopoverPanel.h"
#include "linux/system/QtPainter.h"
#include "popover/DesktopTexts.h"

namespace marigold {

namespace {

constexpr double pixelsPerPoint = 2;
constexpr int fontPixels = 13;

/// Words for a toolkit without a display.
struct Words {
  std::array<std::string, 3> texts{"marigold", "-platform", "offscreen"};
  std::array<char*, 4> pointers{texts[0].data(), texts[1].data(), texts[2].data(), nullptr};
  int count = static_cast<int>(texts.size());
};

bool savePicture(const Picture& picture, const std::string& path) {
  Words words;
  const QGuiApplication application(words.count, words.pointers.data());
  return rasterize(picture(QtTextMeasurer()), pixelsPerPoint)
      .save(QString::fromStdString(path), "PNG");
}

bool savePopoverPicture(const PopoverContent& content, const std::string& path) {
  qputenv("QT_SCALE_FACTOR", QByteArray::number(pixelsPerPoint));
  Words words;
  const QApplication application(words.count, words.pointers.data());
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
