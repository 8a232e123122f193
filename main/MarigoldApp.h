#pragma once

#include <iosfwd>
#include <optional>

#include "CommandLine.h"
#include "Surroundings.h"
#include "Time.h"

namespace marigold {

/// Runs the one-shot mode that `command` asks for and gives the exit status of the process; nothing
/// when the application itself is asked for, or a mode that takes the desktop's painter.
[[nodiscard]] std::optional<int> runOneShotMode(const Command& command,
                                                const Surroundings& surroundings, Date now,
                                                std::ostream& out, std::ostream& err);

}  // namespace marigold
