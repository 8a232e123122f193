#pragma once

#include <memory>

#include "base/EventLoop.h"
#include "linux/system/BusLink.h"
#include "linux/system/ScreenPlaces.h"
#include "ports/Defaults.h"
#include "ports/StatusItem.h"

namespace marigold {

/// The status bar of a Linux desktop with a display. Its item takes the best form there is and
/// changes it as hosts come and go: a StatusNotifierItem, an icon in an X11 tray, or a small
/// window of its own, the strip, whose place the preferences remember.
class LinuxStatusBar final : public StatusBar {
 public:
  /// The references must outlive the items.
  LinuxStatusBar(EventLoop& loop, BusLink& sessionBus, Defaults& defaults, bool developmentBuild)
      : loop_(loop),
        sessionBus_(sessionBus),
        defaults_(defaults),
        developmentBuild_(developmentBuild) {}

  [[nodiscard]] std::unique_ptr<StatusItem> makeItem() override;

  /// Where the item is, as it was last told; it must not outlive this.
  [[nodiscard]] const ItemPlace& itemPlace() const { return itemPlace_; }

 private:
  EventLoop& loop_;
  BusLink& sessionBus_;
  Defaults& defaults_;
  bool developmentBuild_;
  ItemPlace itemPlace_;
};

}  // namespace marigold
