#pragma once

#include "Surroundings.h"

namespace marigold {

/// The surroundings of this process, by its environment and the XDG base directory rules.
[[nodiscard]] Surroundings linuxSurroundings();

/// The name of the user's locale for times, such as "de_DE.UTF-8"; empty when none is set.
[[nodiscard]] std::string timeLocale();

}  // namespace marigold
