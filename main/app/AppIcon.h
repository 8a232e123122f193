#pragma once

#include "base/Drawing.h"

namespace marigold {

/// The icon of the application: a marigold seen from above, in a square of 64 points that it fills.
/// A development build's has the dot that its mark has.
[[nodiscard]] Drawing appIcon(bool devMarker);

}  // namespace marigold
