// Cache files are ours, but anything may have become of them. What decodes must survive being
// saved and loaded again.

#include <string>

#include "Fuzzed.h"
#include "model/DiskCache.h"

namespace marigold::fuzz {

void examine(std::string_view input) {
  const auto snapshot = decodeCachedSnapshot(input);
  if (snapshot) {
    const auto content = encodeCachedSnapshot(*snapshot);
    require(content && decodeCachedSnapshot(*content) == snapshot);
  }
}

}  // namespace marigold::fuzz
