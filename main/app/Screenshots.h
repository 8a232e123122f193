#pragma once

#include "base/Drawing.h"

namespace marigold {

/// A sheet with the mark in all its looks, on a dark and on a light bar, drawn from sample readings
/// through the same rules as the real mark.
[[nodiscard]] Drawing menuBarShot(const TextMeasurer& measurer);

}  // namespace marigold
