#pragma once

#include "MarigoldApp.h"

namespace marigold {

/// Pictures as PNG files, two pixels a point, written without a display; the popover's in an
/// interface font of 13 pixels. Each starts a Qt application of its own, so none may run.
[[nodiscard]] PictureFiles pictureFiles();

}  // namespace marigold
