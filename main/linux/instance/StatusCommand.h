#pragma once

#include "app/StatusReport.h"
#include "base/Surroundings.h"
#include "linux/instance/InstanceSeat.h"
#include "linux/system/LinuxSurroundings.h"

namespace marigold {

/// Prints the status, as the instance that runs tells it or, without one, by a read of one's own.
/// Gives the exit status of the process.
[[nodiscard]] int printStatus(StatusForm form, const InstanceSeat& seat,
                              const Surroundings& surroundings, const Environment& environment);

/// The same, and then whatever changes, until nobody reads it any more. An instance that ends is
/// stood in for by own reads until there is one again, which is seen at once.
[[nodiscard]] int followStatus(StatusForm form, const InstanceSeat& seat,
                               const Surroundings& surroundings, const Environment& environment);

}  // namespace marigold
