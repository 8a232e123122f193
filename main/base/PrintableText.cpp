#include "base/PrintableText.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace marigold {

namespace {

struct Character {
  char32_t point = 0;
  std::size_t length = 1;  // bytes
  bool isValid = false;
};

constexpr char32_t byteOf(char c) {
  return static_cast<unsigned char>(c);
}

// The character that `text`, which is not empty, begins with.
Character firstOf(std::string_view text) {
  const char32_t lead = byteOf(text.front());
  if (lead < 0x80) {
    return {.point = lead, .isValid = true};
  }
  std::size_t length = 2;
  if (lead >= 0xe0) {
    length = lead >= 0xf0 ? 4 : 3;
  }
  if (lead < 0xc2 || lead > 0xf4 || text.size() < length) {
    return {};
  }
  char32_t point = lead & (0x7fU >> length);
  for (const char c : text.substr(1, length - 1)) {
    if ((byteOf(c) & 0xc0U) != 0x80) {
      return {};
    }
    point = point << 6U | (byteOf(c) & 0x3fU);
  }
  constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = point >= 0xd800 && point <= 0xdfff;
  if (point < smallest.at(length) || point > 0x10ffff || isSurrogate) {
    return {};
  }
  return {.point = point, .length = length, .isValid = true};
}

bool isControl(char32_t point) {
  return point < 0x20 || (point >= 0x7f && point <= 0x9f) ||
         point == 0x061c ||                       // Arabic letter mark
         (point >= 0x200b && point <= 0x200f) ||  // no width; left-to-right and right-to-left marks
         (point >= 0x2028 && point <= 0x202e) ||  // line ends, embeddings and overrides
         (point >= 0x2060 && point <= 0x206f) ||  // isolates and other invisible ones
         point == 0xfeff;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string safe;
  while (!text.empty()) {
    const Character first = firstOf(text);
    if (first.isValid && !isControl(first.point)) {
      safe.append(text.substr(0, first.length));
    } else {
      safe += '?';
    }
    text.remove_prefix(first.length);
  }
  return safe;
}

}  // namespace marigold
