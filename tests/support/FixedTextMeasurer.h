#pragma once

#include "base/Drawing.h"

namespace marigold::test {

/// Every byte is 6 points wide; spaces beyond ASCII are one point.
class FixedTextMeasurer final : public TextMeasurer {
 public:
  [[nodiscard]] TextExtent measure(std::string_view text, const FontStyle& font) const override {
    const bool space = text == "\u2009" || text == "\u200A";
    return {.width = space ? 1 : 6.0 * static_cast<double>(text.size()),
            .ascent = font.size,
            .descent = 2,
            .capHeight = 8};
  }
};

}  // namespace marigold::test
