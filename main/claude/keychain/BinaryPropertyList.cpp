#include "claude/keychain/BinaryPropertyList.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace marigold {

namespace {

constexpr std::size_t descriptionSize = 32;
constexpr std::uint64_t firstContainerMarker = 0xA0;  // lists, sets and dictionaries are above
constexpr std::uint64_t firstDictionaryMarker = 0xD0;

// A big-endian number; nothing beyond the end or wider than 8 bytes.
std::optional<std::uint64_t> numberAt(std::string_view bytes, std::uint64_t at,
                                      std::uint64_t width) {
  if (width > 8 || at > bytes.size() || width > bytes.size() - at) {
    return std::nullopt;
  }
  std::uint64_t value = 0;
  for (const char byte :
       bytes.substr(static_cast<std::size_t>(at), static_cast<std::size_t>(width))) {
    value = value << 8U | static_cast<unsigned char>(byte);
  }
  return value;
}

// Where a list or dictionary names the values it holds, by their places in the table.
struct References {
  std::uint64_t first = 0;
  std::uint64_t count = 0;  // 0 for other values
};

// Those of the value at `at`; nothing when it is broken.
std::optional<References> referencesAt(std::string_view bytes, std::uint64_t at) {
  const auto marker = numberAt(bytes, at, 1);
  if (!marker || *marker < firstContainerMarker) {
    return marker ? std::optional(References{}) : std::nullopt;
  }
  References references{.first = at + 1, .count = *marker & 0xFU};
  if (references.count == 0xF) {  // the real count follows, with its own width
    const std::uint64_t width = 1U << (numberAt(bytes, at + 1, 1).value_or(0) & 0xFU);
    const auto count = numberAt(bytes, at + 2, width);
    if (!count || *count > bytes.size()) {
      return std::nullopt;
    }
    references = {.first = at + 2 + width, .count = *count};
  }
  references.count *= *marker < firstDictionaryMarker ? 1U : 2U;
  return references;
}

}  // namespace

bool isBinaryPropertyList(std::string_view bytes) {
  return bytes.starts_with("bplist00");
}

// The form ends with a table of where each value lies and a description of the table.
bool sharesNothing(std::string_view bytes) {
  const std::size_t end = bytes.size() - std::min(bytes.size(), descriptionSize);
  const std::uint64_t offsetWidth = numberAt(bytes, end + 6, 1).value_or(0);
  const std::uint64_t referenceWidth = numberAt(bytes, end + 7, 1).value_or(0);
  const std::uint64_t valueCount = numberAt(bytes, end + 8, 8).value_or(0);
  const std::uint64_t table = numberAt(bytes, end + 24, 8).value_or(0);
  if (valueCount > bytes.size() || table > bytes.size()) {
    return false;
  }
  std::vector<References> values;
  std::uint64_t total = 0;
  for (std::uint64_t index = 0; index < valueCount; ++index) {
    const auto offset = numberAt(bytes, table + index * offsetWidth, offsetWidth);
    const auto references = offset ? referencesAt(bytes, *offset) : std::nullopt;
    if (!references) {
      return false;
    }
    values.push_back(*references);
    total += references->count;
  }
  if (total > bytes.size()) {
    return false;
  }
  std::vector<bool> held(values.size());
  for (const References& references : values) {
    for (std::uint64_t i = 0; i < references.count; ++i) {
      const auto index = numberAt(bytes, references.first + i * referenceWidth, referenceWidth);
      if (!index || *index >= values.size()) {
        return false;
      }
      if (held[*index]) {
        return false;
      }
      held[*index] = values[*index].count > 0;
    }
  }
  return true;
}

}  // namespace marigold
