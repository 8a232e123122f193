#pragma once

#include <string>

#include "MarigoldApp.h"
#include "ports/PopoverContent.h"

namespace marigold {

/// Writes a picture to the PNG file at `path`, two pixels a point, without a display; false when it
/// cannot be written. Starts a Qt application of its own, so none may run.
[[nodiscard]] bool savePicture(const Picture& picture, const std::string& path);

/// The same of the popover with this content, in an interface font of 13 pixels a point's worth.
[[nodiscard]] bool savePopoverPicture(const PopoverContent& content, const std::string& path);

}  // namespace marigold
