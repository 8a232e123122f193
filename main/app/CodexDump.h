#pragma once

#include <string>

#include "base/Surroundings.h"
#include "base/Time.h"

namespace marigold {

/// How the Codex reading comes about at this moment, as lines of text for a person: where was
/// looked, which files were considered, which record won, what is shown. Holds usage numbers, times
/// and file names only. Blocks on the disk and changes nothing, the cached reading included.
[[nodiscard]] std::string codexDump(const Surroundings& surroundings, Date now);

}  // namespace marigold
