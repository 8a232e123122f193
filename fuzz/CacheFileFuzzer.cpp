// Cache files are ours, but anything may have become of them. What decodes must survive being
// saved and loaded again.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "DiskCache.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span bytes(data, size);
  const auto snapshot = marigold::decodeCachedSnapshot(std::string(bytes.begin(), bytes.end()));
  if (snapshot) {
    const auto content = marigold::encodeCachedSnapshot(*snapshot);
    if (!content || marigold::decodeCachedSnapshot(*content) != snapshot) {
      std::abort();
    }
  }
  return 0;
}
