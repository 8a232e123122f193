#pragma once

#include <vector>

#import <AppKit/AppKit.h>

#include "base/MenuItem.h"

namespace marigold {

/// A native menu of these items, which keeps what they do.
[[nodiscard]] NSMenu* makeMenu(const std::vector<MenuItem>& items);

}  // namespace marigold
