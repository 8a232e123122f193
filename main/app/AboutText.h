#pragma once

#include "ports/ApplicationControl.h"

namespace marigold {

/// What the About panel says of this program.
[[nodiscard]] AboutPanel aboutPanel();

}  // namespace marigold
