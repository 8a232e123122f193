#pragma once

namespace marigold {

/// Makes sure that the system never writes this process's memory to a file, nor that of a child. A
/// program to which the system hands core dumps gets them all the same, and is told the limit.
void forbidCoreDumps() noexcept;

}  // namespace marigold
