#pragma once

namespace marigold {

/// Makes sure that the system never writes this process's memory to a file, nor that of a child.
void forbidCoreDumps() noexcept;

}  // namespace marigold
