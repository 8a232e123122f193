#include <gtest/gtest.h>

#include "GaugeView.h"
#include "MenuBarRender.h"
#include "bar/Palette.h"
#include "support/SimplePorts.h"

namespace marigold {
namespace {

using Mode = GaugeBar::Mode;
using enum MenuBarStyle;

std::string hundredths(const Color& color) {
  std::ostringstream out;
  out << 100 * color.red << ',' << 100 * color.green << ',' << 100 * color.blue;
  if (color.opacity < 1) {
    out << '@' << color.opacity;
  }
  return out.str();
}

TEST(Palette, AnAccentColoursUntilTheRedZone) {
  std::string accents;
  for (const ProviderAccent accent : allCases<ProviderAccent>) {
    accents += hundredths(menuBarBarFill(accent, 89.9, DarkMenuBar::yes)) + " ";
    accents += hundredths(menuBarBarFill(accent, 69.9, DarkMenuBar::no)) + "; ";
    EXPECT_EQ(menuBarBarFill(accent, 90, DarkMenuBar::unknown), UsageZone::red);
  }
  EXPECT_EQ(accents,
            "97,73,18 28,78,55; 20,66,72 7,47,53; 30,56,90 16,40,80; 45,45,85 34,32,80; 66,42,85 "
            "54,26,74; 90,42,62 78,18,46; 95,56,24 76,37,2; 50,56,62 36,42,48; ");
  EXPECT_EQ(UsageZone::color(70), UsageZone::amber);
  EXPECT_EQ(ZoneRGB::color(90), (ZoneRGB{.red = 0.92, .green = 0.34, .blue = 0.29}));
  EXPECT_EQ(hundredths(UsageZone::track), "55,55,55@0.85");
  std::string greys;
  for (const auto ground : {DarkMenuBar::yes, DarkMenuBar::no, DarkMenuBar::unknown}) {
    for (const bool highContrast : {true, false}) {
      greys += hundredths(menuBarLabelColor(ground, highContrast)) + " " +
               hundredths(ringTrack(ground, highContrast)) + "; ";
    }
  }
  EXPECT_EQ(greys,
            "100,100,100 100,100,100@0.45; 100,100,100@0.85 100,100,100@0.22; 0,0,0 0,0,0@0.32; "
            "0,0,0@0.85 0,0,0@0.14; 46,46,46 46,46,46@0.7; 46,46,46 46,46,46@0.45; ");
}

// What a drawing shows, one shape after the other: its lengths, then its colour in hundredths.
struct Describe {
  std::string operator()(const StrokeArc& s) const {
    return shape("arc", {s.center.x, s.center.y, s.radius, s.width, s.start, s.sweep}, s.color,
                 s.dashes, s.roundCaps ? "round " : "");
  }
  std::string operator()(const FillRoundedRect& s) const {
    return shape("fill",
                 {s.origin.x, s.origin.y, s.size.width, s.size.height, s.cornerRadius, s.level},
                 s.color);
  }
  std::string operator()(const StrokeRoundedRect& s) const {
    return shape("line",
                 {s.origin.x, s.origin.y, s.size.width, s.size.height, s.cornerRadius, s.width},
                 s.color, s.dashes);
  }
  std::string operator()(const StrokeLoop& s) const {
    const auto count = static_cast<double>(s.points.size());
    return shape("loop", {count, s.points[0].y, s.points[6].x, s.points[6].y, s.width}, s.color);
  }
  std::string operator()(const Text& s) const {
    return shape(s.text, {s.baseline.x, s.baseline.y, s.font.size}, s.color, {},
                 (s.font.weight == FontStyle::Weight::semibold ? "bold " : "") +
                     std::string(s.font.monospacedDigits ? "digits " : ""));
  }
  std::string operator()(const Layer& s) const {
    return "[" + shape("x", {s.scale}, {}) + all(s.ops) + "] ";
  }
  static std::string all(const std::vector<DrawOp>& ops) {
    std::string text;
    for (const DrawOp& op : ops) {
      text += std::visit(Describe(), op.shape);
    }
    return text;
  }
  static std::string shape(const std::string& name, std::initializer_list<double> lengths,
                           const Color& color, const Dashes& dashes = {},
                           const std::string& more = {}) {
    std::ostringstream out;
    out.precision(3);
    out << name << ' ';
    for (const double length : lengths) {
      out << length << ' ';
    }
    if (dashes != Dashes()) {
      out << "dashed " << dashes.dash << ' ' << dashes.gap << ' ';
    }
    out << more << '#' << hundredths(color) << "; ";
    return out.str();
  }
};

std::string described(const Drawing& drawing) {
  return std::to_string(static_cast<int>(drawing.size.width)) + "x" +
         std::to_string(static_cast<int>(drawing.size.height)) + ": " + Describe::all(drawing.ops);
}

TEST(MenuBarRender, GaugesAndTextsAreSetByTheirMetrics) {
  const auto bar = [](double percent, Mode mode = Mode::normal) {
    return GaugeBar{.percent = percent, .mode = mode};
  };
  const MenuBarSegment both{.bar = bar(42),
                            .token = "42%",
                            .inner = bar(75, Mode::stale),
                            .innerToken = "7%",
                            .reset = "2h",
                            .label = "5h",
                            .innerLabel = "wk"};
  const MenuBarSegment textOnly{.token = "-", .rendersBar = false};
  const MenuBarSegment innerOnly{.bar = bar(1),
                                 .inner = bar(130),
                                 .innerToken = "7%",
                                 .innerLabel = "wk",
                                 .rendersBar = false};
  const MenuBarSegment nothing{.rendersBar = false};
  for (const auto& [mark, expected] : std::vector<std::pair<MenuBarMark, std::string>>{
           {{.segments = {both}},
            "95x18: arc 8 9 7 2 0 1 #100,100,100@0.22; arc 8 9 7 2 0.0228 0.374 round #28,78,55; "
            "arc 8 9 4.1 1.8 0 1 #100,100,100@0.2475; arc 8 9 4.1 1.8 0.0352 0.68 round "
            "#97,73,18@0.55; 5h 19.5 13 9.5 bold #0,0,0; 42% 32.5 13 11 digits #0,0,0; 2h 53.5 13 "
            "11 digits #0,0,0; wk 70 13 9.5 bold #0,0,0; 7% 83 13 11 digits #0,0,0; "},
           {{.segments = {both}, .style = pills, .textColor = {.red = 1}},
            "85x18: fill 0 3 6 12 2 1 #100,100,100@0.22; fill 0 3 6 12 2 0.42 #28,78,55; 5h 9.5 13 "
            "9.5 bold #100,0,0; 42% 22.5 13 11 digits #100,0,0; 2h 43.5 13 11 digits #100,0,0; wk "
            "60 13 9.5 bold #100,0,0; 7% 73 13 11 digits #100,0,0; "},
           {{.segments = {{.bar = bar(0)}, textOnly, {.bar = {}}}, .darkMenuBar = DarkMenuBar::no},
            "50x18: arc 8 9 7 2 0 1 #0,0,0@0.14; arc 8 9 7 2 0 0.03 #28,78,55; - 22 13 11 digits "
            "#0,0,0; arc 42 9 7 1.25 0 1 dashed 2.03 1.35 #0,0,0@0.32; "},
           {{.segments =
                 {nothing, {.bar = bar(0)}, nothing, {.bar = bar(90, Mode::stale)}, nothing},
             .style = pills,
             .darkMenuBar = DarkMenuBar::no},
            "18x18: fill 0 3 6 12 2 1 #0,0,0@0.14; fill 0 3 6 12 2 0.125 #28,78,55; fill 12 3 6 12 "
            "2 1 #0,0,0@0.176; fill 12 3 6 12 2 0.9 #92,34,29@0.55; "},
           {{.segments = {{.bar = {}}}, .style = pills},
            "6x18: line 0.625 3.62 4.75 10.8 1.38 1.25 dashed 2.15 1.43 #100,100,100@0.45; "},
           {{.segments = {innerOnly},
             .darkMenuBar = DarkMenuBar::no,
             .highContrast = true,
             .devMarker = true},
            "44x18: arc 8 9 4.1 1.8 0 1 #0,0,0@0.32; arc 8 9 4.1 1.8 0 1 #92,34,29; wk 19 13 9.5 "
            "bold #0,0,0; 7% 32 13 11 digits #0,0,0; fill 0 0 3 3 1.5 1 #95,56,24; "},
           {{}, "0x18: "},
       }) {
    EXPECT_EQ(described(MenuBarRender::markImage(mark, test::FixedTextMeasurer())), expected);
  }
  for (const auto& [mark, expected] : std::vector<std::pair<MenuBarMark, std::string>>{
           {{.segments = {{.bar = bar(42)}, innerOnly, nothing},
             .style = pills,
             .darkMenuBar = DarkMenuBar::no,
             .devMarker = true},
            "22x22: fill 2 2 8 18 2.67 1 #46,46,46@0.45; fill 2 2 8 18 2.67 0.42 #28,78,55; fill "
            "12 2 8 18 2.67 1 #46,46,46@0.45; fill 12 2 8 18 2.67 1 #92,34,29; fill 0 0 3 3 1.5 1 "
            "#95,56,24; "},
           {{.segments = {innerOnly, {.bar = bar(42)}}},
            "22x22: arc 6.5 6.5 4.75 2.5 0 1 #46,46,46@0.45; arc 6.5 6.5 4.75 2.5 0 1 #92,34,29; "
            "arc 15.5 15.5 4.75 2.5 0 1 #46,46,46@0.45; arc 15.5 15.5 4.75 2.5 0.0424 0.335 round "
            "#28,78,55; "},
           {{.segments = {innerOnly, innerOnly, innerOnly}},
            "22x22: arc 5.5 6 4 2.5 0 1 #46,46,46@0.45; arc 5.5 6 4 2.5 0 1 #92,34,29; arc 16.5 6 "
            "4 2.5 0 1 #46,46,46@0.45; arc 16.5 6 4 2.5 0 1 #92,34,29; arc 11 16 4 2.5 0 1 "
            "#46,46,46@0.45; arc 11 16 4 2.5 0 1 #92,34,29; "},
           {{.segments = {innerOnly}},
            "22x22: [x 1.38 #0,0,0; arc 8 8 4.1 1.8 0 1 #46,46,46@0.45; arc 8 8 4.1 1.8 0 1 "
            "#92,34,29; ] "},
       }) {
    EXPECT_EQ(described(MenuBarRender::squareImage(mark)), expected);
  }
  EXPECT_EQ(described(MenuBarRender::idleImage(false, {.red = 1})),
            "16x18: loop 60 2.5 10.4 6.28 1.5 #100,0,0; fill 6.25 7.85 3.5 3.5 1.75 1 #100,0,0; ");
  EXPECT_EQ(
      described(MenuBarRender::idleSquare(true)),
      "22x22: [x 1.38 #0,0,0; loop 60 1.5 10.4 5.28 1.5 #46,46,46; fill 6.25 6.85 3.5 3.5 1.75 1 "
      "#46,46,46; fill 0 0 3 3 1.5 1 #95,56,24; ] ");
}

TEST(MenuBarRender, TraysAreOfferedWhatTheyShowWell) {
  const Drawing square{.size = {.width = 22, .height = 22}};
  for (const auto& [wideAt, expected] : std::vector<std::pair<std::optional<int>, std::string>>{
           {{}, "22 24 32 48 "}, {1, "24 "}, {2, "49 "}}) {
    std::string scales;
    for (const auto& image : MenuBarRender::trayImages(square, {}, wideAt)) {
      scales += std::to_string(std::lround(22 * image.scale)) + " ";
    }
    EXPECT_EQ(scales, expected);
  }
}

}  // namespace
}  // namespace marigold
