#include "linux/item/LinuxStatusItem.h"

#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include <QtGui/QCursor>
#include <QtGui/QGuiApplication>
#include <QtGui/QImage>

#include "MenuBarRender.h"
#include "linux/item/NativeMenu.h"
#include "linux/item/StatusNotifierItem.h"
#include "linux/item/Strip.h"
#include "linux/item/TrayIcon.h"
#include "linux/system/QtPainter.h"
#include "linux/system/ScreenPlaces.h"
#include "linux/system/X11.h"

namespace marigold {

namespace {

constexpr const char* stripPositionKey = "stripPosition";

// How long no StatusNotifierItem host may be there before another form takes over: the bus answers
// within this, and a panel that restarts is back.
constexpr Seconds hostPatience{0.5};

class LinuxStatusItem final : public StatusItem {
 public:
  LinuxStatusItem(EventLoop& loop, BusLink& sessionBus, Defaults& defaults, ItemPlace& place,
                  bool developmentBuild)
      : loop_(loop),
        defaults_(defaults),
        place_(place),
        notifier_(developmentBuild),
        oldTray_(xembedTraySelection, [this] { choose(); }) {
    notifier_.onAvailabilityChange = [this] { choose(); };
    notifier_.onActivate = [this](int x, int y) { clicked(StatusItemClick::Button::left, x, y); };
    notifier_.onContextMenu = [this](int x, int y) {
      clicked(StatusItemClick::Button::right, x, y);
    };
    notifier_.onMenuRead = [this](bool opening) {
      if (opening) {
        place_.area = clickedIcon(QCursor::pos(), QCursor::pos());
      }
      return onMenuRead ? onMenuRead(opening) : std::vector<MenuItem>();
    };
    bus_ = sessionBus.follow([this, address = sessionBus.address()](const auto& /*bus*/) {
      notifier_.connectTo(address);
    });
    choose();
  }

  [[nodiscard]] DarkMenuBar ownGround() const override {
    return strip_ ? DarkMenuBar::yes : DarkMenuBar::unknown;
  }

  void show(const StatusItemContent& content) override {
    const StatusItemContent before = std::exchange(content_, content);
    if (content.square != before.square || content.mark != before.mark) {
      offerImages();
    }
    notifier_.setToolTip(content_.tooltipTitle, content_.tooltip);
    notifier_.setLabel(content_.label);
    notifier_.setAccessibleDescription(content_.accessibilityValue);
    fill();
  }

  void openMenu(std::vector<MenuItem> items) override { openNativeMenu(std::move(items), place_); }

 private:
  // Takes the best form there is.
  void choose() {
    if (notifier_.available()) {
      takeOver_.cancel();
      tray_.reset();
      strip_.reset();
      offerImages();  // this host may show them otherwise than the last
      tellGround();
      return;
    }
    takeOver_ = loop_.callAfter(hostPatience, [this] {
      // While a watcher may still take the item the strip stands in: Qt decides once which of both
      // kinds of tray it speaks.
      if (oldTray_.owned() && !notifier_.isAsking()) {
        strip_.reset();
        if (!tray_) {
          tray_ = std::make_unique<TrayIcon>();
          tray_->onClick = [this](const auto& click, const auto& area) { tell(click, area); };
        }
      } else {
        tray_.reset();
        if (!strip_) {
          strip_ = std::make_unique<Strip>(
              loop_, Strip::Place{.load = [this] { return defaults_.text(stripPositionKey); },
                                  .save =
                                      [this](std::string place) {
                                        defaults_.set(stripPositionKey, std::move(place));
                                      }});
          strip_->onClick = [this](const auto& click, const auto& area) { tell(click, area); };
        }
      }
      tellGround();
      fill();
    });
  }

  void tellGround() const {
    if (onGroundChange) {
      onGroundChange();
    }
  }

  void offerImages() {
    // Of several screens the sharpest; Waybar knows whole-number scales only.
    const int screen = static_cast<int>(std::ceil(qGuiApp->devicePixelRatio()));
    std::vector<QImage> images;
    for (const auto& [drawing, scale] : MenuBarRender::trayImages(
             content_.square, content_.mark,
             notifier_.hostIsWaybar() ? std::optional(screen) : std::nullopt)) {
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
      strip_->setDark(content_.darkMenuBar == DarkMenuBar::yes);
      strip_->setContent(content_);
      strip_->show();
    }
  }

  void clicked(StatusItemClick::Button button, int x, int y) {
    // What lets a window come to the front on Wayland.
    if (const std::string token = notifier_.takeActivationToken(); !token.empty()) {
      ::qputenv("XDG_ACTIVATION_TOKEN", QByteArray::fromStdString(token));
    }
    tell({.button = button}, clickedIcon({x, y}, QCursor::pos()));
  }

  void tell(const StatusItemClick& click, const std::optional<QRect>& area) {
    place_.area = area;
    if (onClick) {
      onClick(click);
    }
  }

  EventLoop& loop_;
  Defaults& defaults_;
  ItemPlace& place_;
  StatusItemContent content_;
  StatusNotifierItem notifier_;
  BusLink::Following bus_;
  X11Selection oldTray_;
  Timer takeOver_;
  std::unique_ptr<TrayIcon> tray_;
  std::unique_ptr<Strip> strip_;
};

}  // namespace

std::unique_ptr<StatusItem> LinuxStatusBar::makeItem() {
  return std::make_unique<LinuxStatusItem>(loop_, sessionBus_, defaults_, itemPlace_,
                                           developmentBuild_);
}

}  // namespace marigold
