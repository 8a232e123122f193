#include "LinuxStatusItem.h"

#include <optional>
#include <utility>
#include <vector>

#include <QtGui/QCursor>
#include <QtGui/QImage>

#include "MenuBarRender.h"
#include "NativeMenu.h"
#include "QtPainter.h"
#include "ScreenPlaces.h"
#include "StatusNotifierItem.h"
#include "Strip.h"
#include "TrayIcon.h"
#include "X11.h"

namespace marigold {

namespace {

constexpr const char* stripPositionKey = "stripPosition";

// How long no StatusNotifierItem host may be there before another form takes over: the bus answers
// within this, and a panel that restarts is back.
constexpr Seconds hostPatience{0.5};

class LinuxStatusItem final : public StatusItem {
 public:
  LinuxStatusItem(EventLoop& loop, Defaults& defaults, const Appearance& appearance,
                  bool developmentBuild)
      : loop_(loop),
        defaults_(defaults),
        appearance_(appearance),
        notifier_(developmentBuild),
        oldTray_(xembedTraySelection, [this] { choose(); }) {
    notifier_.onAvailabilityChange = [this] { choose(); };
    notifier_.onActivate = [this](int x, int y) { clicked(StatusItemClick::Button::left, x, y); };
    notifier_.onContextMenu = [this](int x, int y) {
      clicked(StatusItemClick::Button::right, x, y);
    };
    notifier_.onMenuOpening = [this] { return menu(true); };
    notifier_.onMenuReading = [this] { return menu(false); };
    choose();
  }

  void show(const StatusItemContent& content) override {
    const StatusItemContent before = std::exchange(content_, content);
    if (content.square != before.square || content.mark != before.mark) {
      offerImages();
    }
    notifier_.setToolTip(content_.tooltip);
    notifier_.setLabel(content_.label);
    notifier_.setAccessibleDescription(content_.accessibilityValue);
    fill();
  }

  void openMenu(std::vector<MenuItem> items, std::optional<Point> at) override {
    const QPoint place = at ? QPointF(at->x, at->y).toPoint() : QCursor::pos();
    openNativeMenu(std::move(items), placeOnScreen(place, {1, 1}));  // hosts tell any place
  }

 private:
  // Takes the best form there is.
  void choose() {
    if (notifier_.available()) {
      takeOver_.cancel();
      tray_.reset();
      strip_.reset();
      offerImages();  // this host may show them otherwise than the last
      return;
    }
    takeOver_ = loop_.callAfter(hostPatience, [this] {
      // While a watcher may still take the item the strip stands in: Qt decides once which of both
      // kinds of tray it speaks.
      if (oldTray_.owned() && !notifier_.isAsking()) {
        strip_.reset();
        if (!tray_) {
          tray_ = std::make_unique<TrayIcon>();
          tray_->onClick = [this](const StatusItemClick& click) { tell(click); };
        }
      } else {
        tray_.reset();
        if (!strip_) {
          strip_ = std::make_unique<Strip>(
              Strip::Place{.load = [this] { return defaults_.text(stripPositionKey); },
                           .save =
                               [this](std::string place) {
                                 defaults_.set(stripPositionKey, std::move(place));
                               }});
          strip_->onClick = [this](const StatusItemClick& click) { tell(click); };
        }
      }
      fill();
    });
  }

  void offerImages() {
    std::vector<QImage> images;
    for (const auto& [drawing, scale] :
         menuBarRender::trayImages(content_.square, content_.mark, notifier_.hostIsWaybar())) {
      images.push_back(rasterize(drawing, scale));
    }
    notifier_.setPixmaps(images);
  }

  // Shows the content in the form that is not a StatusNotifierItem's.
  void fill() {
    if (tray_) {
      tray_->setContent(content_);
    }
    if (strip_) {
      strip_->setDark(appearance_.settings().darkMenuBar);
      strip_->setContent(content_);
      strip_->show();
    }
  }

  void clicked(StatusItemClick::Button button, int x, int y) {
    // What lets a window come to the front on Wayland.
    if (const std::string token = notifier_.takeActivationToken(); !token.empty()) {
      ::qputenv("XDG_ACTIVATION_TOKEN", QByteArray::fromStdString(token));
    }
    tell({.button = button,
          .at = fromRootPixels({.x = static_cast<double>(x), .y = static_cast<double>(y)})});
  }

  void tell(const StatusItemClick& click) const {
    if (onClick) {
      onClick(click);
    }
  }

  [[nodiscard]] std::vector<MenuItem> menu(bool opening) const {
    return onMenuRead ? onMenuRead(opening) : std::vector<MenuItem>();
  }

  EventLoop& loop_;
  Defaults& defaults_;
  const Appearance& appearance_;
  StatusItemContent content_;
  StatusNotifierItem notifier_;
  X11Selection oldTray_;
  Timer takeOver_;
  std::unique_ptr<TrayIcon> tray_;
  std::unique_ptr<Strip> strip_;
};

}  // namespace

std::unique_ptr<StatusItem> LinuxStatusBar::makeItem() {
  return std::make_unique<LinuxStatusItem>(loop_, defaults_, appearance_, developmentBuild_);
}

}  // namespace marigold
