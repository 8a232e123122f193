#pragma once

#include "base/Pinned.h"

namespace marigold {

class RandomSource : public Pinned {
 public:
  /// A uniform fraction in the closed range 0 to 1, with 53 random bits.
  [[nodiscard]] virtual double fraction() = 0;
};

}  // namespace marigold
