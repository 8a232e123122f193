#pragma once

#include <memory>

#include "EventLoop.h"
#include "ports/Appearance.h"
#include "ports/Defaults.h"
#include "ports/StatusItem.h"

namespace marigold {

/// The status bar of a Linux desktop with a display. Its item takes the best form there is and
/// changes it as hosts come and go: a StatusNotifierItem, an icon in an X11 tray, or a small window
/// of its own, the strip, whose place the preferences remember.
class LinuxStatusBar final : public StatusBar {
 public:
  /// The references must outlive the items.
  LinuxStatusBar(EventLoop& loop, Defaults& defaults, const Appearance& appearance,
                 bool developmentBuild)
      : loop_(loop),
        defaults_(defaults),
        appearance_(appearance),
        developmentBuild_(developmentBuild) {}

  [[nodiscard]] std::unique_ptr<StatusItem> makeItem() override;

 private:
  EventLoop& loop_;
  Defaults& defaults_;
  const Appearance& appearance_;
  bool developmentBuild_;
};

}  // namespace marigold
