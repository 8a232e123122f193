#pragma once

#include <optional>

#include "app/CommandLine.h"
#include "base/Surroundings.h"
#include "linux/instance/InstanceSeat.h"
#include "linux/system/LinuxSurroundings.h"

namespace marigold {

/// Does what `command` asks for that concerns the one instance, and gives the exit status of the
/// process; nothing when this process is to be the instance, which then has `seat` unless there is
/// no place for one. An instance that runs is asked to open its popover, for a second start as well
/// as for "--open", or to end. The status is asked of it too, else read here. Blocks; needs no Qt
/// application.
[[nodiscard]] std::optional<int> callInstance(const Command& command, InstanceSeat& seat,
                                              const Surroundings& surroundings,
                                              const Environment& environment);

}  // namespace marigold
