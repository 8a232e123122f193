#include <algorithm>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "bar/Palette.h"
#include "popover/PopoverTheme.h"

namespace marigold {
namespace {

// Relative luminance and contrast ratio as the web's accessibility guidelines (WCAG 2) define them.
double luminance(const Color& color) {
  const auto linear = [](double c) {
    EXPECT_LE(c, 1);
    return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(color.red) + 0.7152 * linear(color.green) + 0.0722 * linear(color.blue);
}

Color over(const Color& top, const Color& ground) {
  EXPECT_LE(top.opacity, 1);
  const auto mix = [&](double a, double b) { return a * top.opacity + b * (1 - top.opacity); };
  return {mix(top.red, ground.red), mix(top.green, ground.green), mix(top.blue, ground.blue)};
}

double contrast(const Color& top, const Color& ground) {
  const auto [least, most] = std::minmax({luminance(over(top, ground)), luminance(ground)});
  return (most + 0.05) / (least + 0.05);
}

TEST(PopoverTheme, TextsCanBeReadAndBarsBeSeen) {
  using enum MarigoldTheme::Scheme;
  using enum MarigoldTheme::Contrast;
  for (const auto scheme : {light, dark}) {
    for (const auto raised : {standard, increased}) {
      SCOPED_TRACE(::testing::Message() << (scheme == dark) << (raised == increased));
      const PopoverColors& c = popoverColors({.scheme = scheme, .contrast = raised});
      const Color hovered = over(c.hover, c.card);
      const std::vector<std::pair<Color, Color>> texts = {
          {c.text, c.ground},         {c.text, c.card},
          {c.text, hovered},          {c.text, over(c.hover, c.ground)},
          {c.secondary, c.ground},    {c.secondary, c.card},
          {c.secondary, hovered},     {c.neutralBadgeText, c.neutralBadge},
          {c.controlText, c.control}, {c.warningBadgeText, c.warningBadge},
          {c.onAccent, c.accent},     {c.controlText, over(c.hover, c.control)}};
      for (const auto& [text, ground] : texts) {
        EXPECT_GE(contrast(text, ground), raised == increased && text != c.onAccent ? 7 : 4.5)
            << text.red << " on " << ground.red;
      }
      for (const Color& ground : {c.card, c.ground}) {
        EXPECT_GE(contrast(c.focusRing, ground), 3);
        EXPECT_LT(contrast(c.track, ground), 2) << "a track is no bar";
        EXPECT_GE(contrast(c.cardEdge, ground), raised == increased ? 3 : 1.1);
      }
      EXPECT_EQ(c.barOutline.has_value(), raised == increased);
      Color unusable = c.controlText;
      unusable.opacity *= c.disabled;
      EXPECT_GE(contrast(unusable, c.control), raised == increased ? 4.5 : 2);
      const auto darkGround = scheme == dark ? DarkMenuBar::yes : DarkMenuBar::no;
      for (const ProviderAccent accent : allCases<ProviderAccent>) {
        for (const double percent : {1.0, amberFrom, redFrom}) {
          const Color fill = menuBarBarFill(accent, percent, darkGround);
          // Amber on white is as bright as a warning must be: there the outline makes the bar.
          const bool seen = contrast(fill, c.card) >= (fill == UsageZone::amber ? 1.7 : 2);
          EXPECT_TRUE(seen || (c.barOutline && contrast(*c.barOutline, c.card) >= 4.5));
        }
      }
    }
  }
}

TEST(PopoverTheme, ABarShowsALittleAndOnlyAllOfItIsFull) {
  for (const auto& [percent, filled] : std::vector<std::pair<double, double>>{
           {-1, 0}, {0, 0}, {0.01, 3}, {1, 3}, {2, 6}, {50, 150}, {99.9, 299}, {100, 300}}) {
    EXPECT_DOUBLE_EQ(barFillLength(percent, 300), filled) << percent;
  }
  EXPECT_EQ(barFillLength(std::nan(""), 300), 0);
}

}  // namespace
}  // namespace marigold
