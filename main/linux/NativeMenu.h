#pragma once

#include <vector>

#include <QtCore/QPoint>

#include "MenuItem.h"

namespace marigold {

/// Opens a menu with its corner at `at`, in the toolkit's coordinates, and returns at once. The
/// menu goes away by itself when something is chosen, which runs the item's action, or nothing is.
void openNativeMenu(std::vector<MenuItem> items, const QPoint& at);

}  // namespace marigold
