#pragma once

#include <vector>

#include "app/SelfTest.h"

namespace marigold {

/// What the program needs of this desktop: its helper, a place for the preferences, a font. Starts
/// a Qt application of its own, so none may run.
[[nodiscard]] std::vector<SelfCheck> linuxSelfChecks(const Surroundings& surroundings);

}  // namespace marigold
