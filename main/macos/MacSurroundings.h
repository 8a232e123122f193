#pragma once

#include "base/Surroundings.h"

namespace marigold {

/// The surroundings of this process, as the system tells them.
[[nodiscard]] Surroundings macSurroundings();

}  // namespace marigold
