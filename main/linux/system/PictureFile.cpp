#include "linux/system/PictureFile.h"

#include <array>

#include <QtGui/QGuiApplication>
#include <QtGui/QImage>

#include "linux/system/QtPainter.h"

namespace marigold {

bool savePicture(const Picture& picture, const std::string& path) {
  std::array<std::string, 3> texts{"marigold", "-platform", "offscreen"};
  std::array<char*, 4> words{texts[0].data(), texts[1].data(), texts[2].data(), nullptr};
  int count = static_cast<int>(texts.size());
  const QGuiApplication application(count, words.data());
  constexpr double scale = 2;
  return rasterize(picture(QtTextMeasurer()), scale).save(QString::fromStdString(path), "PNG");
}

}  // namespace marigold
