// A partition rule's description is read through a library that trusts its input more than we do.
// Whatever it holds, the plain form and the hexadecimal one say the same.

#include <string>

#include "Fuzzed.h"
#include "claude/keychain/KeychainReader.h"
#include "claude/keychain/PropertyList.h"

namespace marigold::fuzz {

void examine(std::string_view input) {
  std::string digits;
  for (std::size_t i = 0; i < input.size(); ++i) {
    digits += "0123456789abcdef"[byteAt(input, i) / 16];
    digits += "0123456789abcdef"[byteAt(input, i) % 16];
  }
  const auto list = KeychainReader::partitionIDs(input);
  const PartitionFinding found = KeychainReader::partitionFinding(digits);
  const bool isList = found.kind == PartitionFinding::Kind::list;
  require(isList == list.has_value() && (!isList || found.list == *list));
}

}  // namespace marigold::fuzz
