#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <QtCore/QPoint>
#include <QtCore/QRect>
#include <QtGui/QImage>
#include <xcb/xcb.h>

namespace marigold::test {

/// What an X server shows.
class Screen {
 public:
  explicit Screen(const std::string& display)
      : connection_(xcb_connect(display.c_str(), nullptr), &xcb_disconnect) {}

  /// What a rectangle looks like; nothing while the server does not tell.
  [[nodiscard]] QImage picture(const QRect& where) const {
    xcb_connection_t* c = connection_.get();
    const std::unique_ptr<xcb_get_image_reply_t, decltype(&std::free)> image(
        xcb_get_image_reply(c,
                            xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP,
                                          xcb_setup_roots_iterator(xcb_get_setup(c)).data->root,
                                          static_cast<std::int16_t>(where.x()),
                                          static_cast<std::int16_t>(where.y()),
                                          static_cast<std::uint16_t>(where.width()),
                                          static_cast<std::uint16_t>(where.height()), ~0U),
                            nullptr),
        &std::free);
    return image ? QImage(xcb_get_image_data(image.get()), where.width(), where.height(),
                          QImage::Format_RGB32)
                       .copy()
                 : QImage();
  }
  /// The places in a rectangle that have this colour.
  [[nodiscard]] std::vector<QPoint> find(QRgb color, const QRect& where) const {
    const QImage shown = picture(where);
    std::vector<QPoint> found;
    for (int i = 0; i < shown.width() * shown.height(); ++i) {
      if (const QPoint at(i % shown.width(), i / shown.width()); shown.pixel(at) == color) {
        found.push_back(where.topLeft() + at);
      }
    }
    return found;
  }
  [[nodiscard]] int count(QRgb color, const QRect& where) const {
    return static_cast<int>(find(color, where).size());
  }

 private:
  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection_;
};

}  // namespace marigold::test
