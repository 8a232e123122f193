#pragma once

#include <string>

#include "MarigoldApp.h"

namespace marigold {

/// Writes a picture to the PNG file at `path`, two pixels a point, without a display; false when it
/// cannot be written. Starts a Qt application of its own, so none may run.
[[nodiscard]] bool savePicture(const Picture& picture, const std::string& path);

}  // namespace marigold
