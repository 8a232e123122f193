#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "base/Surroundings.h"

namespace marigold {

/// Environment variables by name.
using Environment = std::map<std::string, std::string>;

/// The whole environment of this process. To be read before any thread starts.
[[nodiscard]] Environment processEnvironment();

/// The surroundings of a process with this environment, by the XDG base directory rules.
[[nodiscard]] Surroundings linuxSurroundings(const Environment& environment);

/// The name of the user's locale for times, such as "de_DE.UTF-8"; empty when none is set.
[[nodiscard]] std::string timeLocale(const Environment& environment);

/// The file of the program that runs; empty when that cannot be known.
[[nodiscard]] std::filesystem::path programFile();

}  // namespace marigold
