#pragma once

#include "MarigoldApp.h"

namespace marigold {

/// Pictures at two pixels a point, as a Mac's screens show them.
[[nodiscard]] PictureFiles macPictures();

}  // namespace marigold
