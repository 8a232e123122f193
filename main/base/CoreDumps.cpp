#include "base/CoreDumps.h"

#include <sys/resource.h>

namespace marigold {

void forbidCoreDumps() noexcept {
  const rlimit none{.rlim_cur = 0, .rlim_max = 0};
  (void)::setrlimit(RLIMIT_CORE, &none);
}

}  // namespace marigold
