// A partition rule's description is read through a library that trusts its input more than we do.
// Whatever it holds, the plain form and the hexadecimal one say the same.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "KeychainReader.h"
#include "PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace marigold;
  const std::span input(data, size);
  // The library must not rely on a zero byte behind.
  const std::vector<char> bytes(input.begin(), input.end());
  std::string digits;
  for (const std::uint8_t byte : input) {
    digits += "0123456789abcdef"[byte / 16];
    digits += "0123456789abcdef"[byte % 16];
  }
  const auto list = KeychainReader::partitionIDs({bytes.data(), bytes.size()});
  const PartitionFinding found = KeychainReader::partitionFinding(digits);
  const bool isList = found.kind == PartitionFinding::Kind::list;
  if (isList != list.has_value() || (isList && found.list != *list)) {
    std::abort();
  }
  return 0;
}
