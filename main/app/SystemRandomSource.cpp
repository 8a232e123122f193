#include "app/SystemRandomSource.h"

#include <cstdint>

namespace marigold {

double SystemRandomSource::fraction() {
  constexpr std::uint64_t largest = (std::uint64_t{1} << 53) - 1;
  return static_cast<double>(std::uniform_int_distribution<std::uint64_t>(0, largest)(device_)) /
         static_cast<double>(largest);
}

}  // namespace marigold
