#pragma once

#include <random>

#include "ports/RandomSource.h"

namespace marigold {

/// Randomness from the system.
class SystemRandomSource final : public RandomSource {
 public:
  [[nodiscard]] double fraction() override;

 private:
  std::random_device device_;
};

}  // namespace marigold
