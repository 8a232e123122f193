#pragma once

#include "base/Drawing.h"

class QIcon;

namespace marigold {

/// An icon that draws `drawing` anew for whatever size is asked for, in the middle of a square: a
/// picture that is scaled is not sharp.
[[nodiscard]] QIcon drawingIcon(Drawing drawing);

}  // namespace marigold
