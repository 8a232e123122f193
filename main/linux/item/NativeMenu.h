#pragma once

#include <vector>

#include "base/MenuItem.h"
#include "linux/system/ScreenPlaces.h"

namespace marigold {

/// Opens a menu at the status item, or at the pointer, and returns at once. The
/// menu goes away by itself when something is chosen, which runs the item's action, or nothing is.
void openNativeMenu(std::vector<MenuItem> items, const ItemPlace& item);

}  // namespace marigold
