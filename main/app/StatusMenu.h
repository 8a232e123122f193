#pragma once

#include <vector>

#include "UsageStore.h"
#include "base/MenuItem.h"
#include "popover/DesktopTexts.h"
#include "ports/ApplicationControl.h"
#include "ports/UpdaterController.h"

namespace marigold {

/// The status item's menu as it is now, as a desktop words it. `open` opens the popover, in bars
/// that may show the menu on any click, and is empty elsewhere. What is referred to must outlive
/// the actions of the items.
[[nodiscard]] std::vector<MenuItem> statusMenu(UsageStore& store, UpdaterController& updater,
                                               ApplicationControl& application, DesktopTexts texts,
                                               Work open);

}  // namespace marigold
