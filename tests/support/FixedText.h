#pragma once

#include <algorithm>
#include <chrono>
#include <string>

#include "base/Drawing.h"
#include "ports/LocalTimeText.h"

namespace marigold::test {

/// "Fri 13:05", in UTC.
struct FixedLocalTimeText final : LocalTimeText {
  [[nodiscard]] std::string weekdayAndTime(Date date) const override {
    const std::chrono::weekday day{
        std::chrono::floor<std::chrono::days>(std::min(date, distantFuture - Seconds{1}))};
    return std::string("SunMonTueWedThuFriSat").substr(std::size_t{3} * day.c_encoding(), 3) + " " +
           isoText(date).substr(11, 5);
  }
};

/// Every byte is 6 points wide; spaces beyond ASCII are one point.
struct FixedTextMeasurer final : TextMeasurer {
  [[nodiscard]] TextExtent measure(std::string_view text, const FontStyle& font) const override {
    const bool space = text == "\u2009" || text == "\u200A";
    return {.width = space ? 1 : 6.0 * static_cast<double>(text.size()),
            .ascent = font.size,
            .descent = 2,
            .capHeight = 8};
  }
};

}  // namespace marigold::test
