#pragma once

#include <vector>

#include "UsageStore.h"
#include "base/MenuItem.h"
#include "ports/ApplicationControl.h"
#include "ports/UpdaterController.h"

namespace marigold {

/// The status item's menu as it is now. `open` opens the popover, on desktops whose bars may show
/// the menu on any click, and is empty on others. What is referred to must outlive the actions of
/// the items.
[[nodiscard]] std::vector<MenuItem> statusMenu(UsageStore& store, UpdaterController& updater,
                                               ApplicationControl& application, Work open);

}  // namespace marigold
