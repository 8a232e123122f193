#pragma once

#include <iosfwd>

namespace marigold {

/// Checks, in this very build and on this machine, the rules that a wrong number would come from.
/// Writes a line per check to `out`; true when all hold. Touches no file and no network.
[[nodiscard]] bool runSelfTest(std::ostream& out);

}  // namespace marigold
