#include "Fuzzed.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "model/DiskCache.h"

namespace marigold::fuzz {

void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

void requireCached(const ProviderSnapshot& snapshot) {
  const auto content = encodeCachedSnapshot(snapshot.cached());
  require(content.has_value());
  const auto cached = decodeCachedSnapshot(content.value_or("")).value_or(CachedSnapshot{});
  require(cached.windows.size() == snapshot.windows.size());
  require(cached.planLabel == snapshot.planLabel && cached.extraNote == snapshot.extraNote);
}

}  // namespace marigold::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input(size, '\0');
  std::copy_n(data, size, input.begin());
  marigold::fuzz::examine(input);
  return 0;
}
