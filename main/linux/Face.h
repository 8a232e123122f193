#pragma once

#include <memory>

#include "base/Drawing.h"
#include "base/EventLoop.h"
#include "linux/system/BusLink.h"
#include "ports/Appearance.h"
#include "ports/Defaults.h"
#include "ports/Popover.h"
#include "ports/StatusItem.h"

namespace marigold {

/// What shows the application, by whether there is a display.
struct Face {
  std::unique_ptr<StatusBar> statusBar;
  std::unique_ptr<Popover> popover;
  std::unique_ptr<Appearance> appearance;
  std::unique_ptr<TextMeasurer> textMeasurer;
};

/// The mark as text on standard output. Of what does not fit there, since it is a terminal that was
/// stopped or a pipe that nobody empties, the newest text waits. The loop must outlive the result.
[[nodiscard]] Face textFace(EventLoop& loop);

/// The mark in the bars of a desktop, and its popover. Needs a running Qt application with windows;
/// the references must outlive the result.
[[nodiscard]] Face desktopFace(EventLoop& loop, BusLink& sessionBus, Defaults& defaults,
                               bool developmentBuild);

}  // namespace marigold
