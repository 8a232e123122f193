#pragma once

#include "base/Time.h"

namespace marigold {

/// Has the process leave, with success, after so long, whatever still blocks it then. Does not
/// wait. Takes the alarm signal for itself.
void leaveAfter(Seconds delay);

}  // namespace marigold
