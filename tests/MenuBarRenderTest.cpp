#include <algorithm>
#include <cmath>
#include <string>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "GaugeView.h"
#include "MenuBarRender.h"
#include "Palette.h"
#include "support/FixedTextMeasurer.h"

namespace marigold {
namespace {

using Mode = GaugeBar::Mode;

// All shapes of one kind, those in layers included.
template <class Shape>
std::vector<Shape> all(const std::vector<DrawOp>& ops) {
  std::vector<Shape> found;
  for (const DrawOp& op : ops) {
    if (const auto* shape = std::get_if<Shape>(&op.shape)) {
      found.push_back(*shape);
    } else if (const auto* layer = std::get_if<Layer>(&op.shape)) {
      for (const Shape& inner : all<Shape>(layer->ops)) {
        found.push_back(inner);
      }
    }
  }
  return found;
}

TEST(PaletteTest, AnAccentColoursUntilTheRedZone) {
  struct Row {
    ProviderAccent accent = ProviderAccent::automatic;
    double percent = 0;
    bool dark = false;
    Color expected;
  };
  const Color tealDark{.red = 0.20, .green = 0.66, .blue = 0.72};
  const Color tealLight{.red = 0.07, .green = 0.47, .blue = 0.53};
  for (const Row& row :
       {Row{ProviderAccent::automatic, 69.9, true, usageZone::green},
        Row{ProviderAccent::automatic, 70, true, usageZone::amber},
        Row{ProviderAccent::automatic, 89.9, false, usageZone::amber},
        Row{ProviderAccent::automatic, 90, false, usageZone::red},
        Row{ProviderAccent::teal, 89.9, true, tealDark},
        Row{ProviderAccent::teal, 89.9, false, tealLight},
        Row{ProviderAccent::teal, 90, false, usageZone::red},
        Row{ProviderAccent::blue, 0, true, {.red = 0.30, .green = 0.56, .blue = 0.90}},
        Row{ProviderAccent::indigo, 0, true, {.red = 0.45, .green = 0.45, .blue = 0.85}},
        Row{ProviderAccent::purple, 0, false, {.red = 0.54, .green = 0.26, .blue = 0.74}},
        Row{ProviderAccent::pink, 0, false, {.red = 0.78, .green = 0.18, .blue = 0.46}},
        Row{ProviderAccent::orange, 0, true, {.red = 0.95, .green = 0.56, .blue = 0.24}},
        Row{ProviderAccent::slate, 0, false, {.red = 0.36, .green = 0.42, .blue = 0.48}}}) {
    EXPECT_EQ(menuBarBarFill(row.accent, row.percent, row.dark), row.expected) << row.percent;
  }
  EXPECT_EQ(ringTrack(true, true).opacity, 0.45);
  EXPECT_EQ(ringTrack(true, false), (Color{.red = 1, .green = 1, .blue = 1, .opacity = 0.22}));
  EXPECT_EQ(ringTrack(false, true).opacity, 0.32);
  EXPECT_EQ(ringTrack(false, false), (Color{.opacity = 0.14}));
}

TEST(GaugeViewTest, RingsFillByTheirPercentAndMode) {
  struct Row {
    GaugeBar bar;
    std::optional<double> sweep;  // of the filled arc
    bool dashed = false;
    double opacity = 1;
  };
  for (const Row& row : {Row{{.percent = 0, .mode = Mode::normal}, 0.03, false, 1},
                         Row{{.percent = 2, .mode = Mode::normal}, 0.03, false, 1},
                         Row{{.percent = 42, .mode = Mode::normal}, 0.42, false, 1},
                         Row{{.percent = 130, .mode = Mode::normal}, 1, false, 1},
                         Row{{.percent = 42, .mode = Mode::stale}, 0.42, false, 0.55},
                         Row{{.percent = 42, .mode = Mode::hollow}, std::nullopt, true, 1}}) {
    Drawing drawing;
    MenuBarRing{.bar = row.bar}.draw(drawing, {.x = 8, .y = 8});
    const auto arcs = all<StrokeArc>(drawing.ops);
    ASSERT_EQ(arcs.size(), row.sweep ? 2U : 1U);
    EXPECT_EQ(arcs.front().sweep, 1) << "the track goes all round";
    EXPECT_EQ(arcs.front().dashes != Dashes{}, row.dashed);
    if (row.sweep) {
      EXPECT_DOUBLE_EQ(arcs.back().sweep, *row.sweep);
    }
    const auto* layer = std::get_if<Layer>(&drawing.ops.front().shape);
    EXPECT_EQ(layer != nullptr ? layer->opacity : 1, row.opacity);

    Drawing pill;
    MenuBarPill{.bar = row.bar}.draw(pill, {});
    const auto fills = all<FillRoundedRect>(pill.ops);
    ASSERT_EQ(fills.size(), row.sweep ? 2U : 0U);
    if (row.sweep) {
      EXPECT_DOUBLE_EQ(fills.back().level, std::max(0.1, *row.sweep));
    }
    EXPECT_EQ(all<StrokeRoundedRect>(pill.ops).size(), row.dashed ? 1U : 0U);
  }
}

TEST(MenuBarRenderTest, SetsGaugesAndTextsFromLeftToRight) {
  const GaugeBar bar{.percent = 40, .mode = Mode::normal};
  const MenuBarSegment both{.bar = bar,
                            .token = "42%",
                            .inner = bar,
                            .innerToken = "7%",
                            .reset = "2h",
                            .label = "5h",
                            .innerLabel = "wk"};
  const MenuBarSegment textOnly{.token = "-", .rendersBar = false};
  const MenuBarSegment gaugeOnly{.bar = bar};
  const MenuBarSegment nothing{.rendersBar = false};
  const MenuBarSegment innerOnly{
      .bar = bar, .inner = bar, .innerToken = "7%", .innerLabel = "wk", .rendersBar = false};
  struct Row {
    std::vector<MenuBarSegment> segments;
    MenuBarStyle style;
    std::string texts;  // each with the x it begins at
    double width;
    std::size_t arcs;
  };
  const std::vector<Row> rows{
      {{both}, MenuBarStyle::rings, "5h@19 42%@32 2h@53 wk@69.5 7%@82.5 ", 95, 4},
      {{both}, MenuBarStyle::pills, "5h@9 42%@22 2h@43 wk@59.5 7%@72.5 ", 85, 0},
      {{gaugeOnly, textOnly, gaugeOnly}, MenuBarStyle::rings, "-@22 ", 50, 4},
      {{nothing, gaugeOnly, nothing, gaugeOnly, nothing}, MenuBarStyle::rings, "", 38, 4},
      {{innerOnly}, MenuBarStyle::rings, "wk@19 7%@32 ", 44, 2},
      {{}, MenuBarStyle::rings, "", 0, 0},
  };
  for (const Row& row : rows) {
    const Drawing drawing = menuBarRender::markImage({.segments = row.segments, .style = row.style},
                                                     test::FixedTextMeasurer());
    std::string texts;
    for (const Text& text : all<Text>(drawing.ops)) {
      std::string x = std::to_string(text.baseline.x);
      x.erase(x.find_last_not_of('0') + 1);
      texts += text.text + "@" + (x.ends_with('.') ? x.substr(0, x.size() - 1) : x) + " ";
      EXPECT_EQ(text.baseline.y, 13) << "digits are centred in the height";
    }
    EXPECT_EQ(texts, row.texts);
    EXPECT_EQ(drawing.size, (Size{.width = row.width, .height = 18})) << row.texts;
    EXPECT_EQ(all<StrokeArc>(drawing.ops).size(), row.arcs) << row.texts;
  }
}

TEST(MenuBarRenderTest, SquaresKeepEveryGaugeInsideAndApart) {
  for (const MenuBarStyle style : allCases<MenuBarStyle>) {
    for (std::size_t count = 1; count <= 3; ++count) {
      const MenuBarSegment segment{.bar = {.percent = 50, .mode = Mode::normal}};
      const Drawing square =
          menuBarRender::squareImage({.segments = std::vector(count, segment), .style = style});
      EXPECT_EQ(square.size, (Size{.width = 22, .height = 22}));
      const auto arcs = all<StrokeArc>(square.ops);
      const auto pills = all<FillRoundedRect>(square.ops);
      EXPECT_EQ(arcs.size() + pills.size(), 2 * count);
      if (count == 1) {
        continue;  // drawn in a scaled layer
      }
      for (std::size_t i = 0; i < arcs.size(); i += 2) {
        const double reach = arcs[i].radius + arcs[i].width / 2;
        const Point at = arcs[i].center;
        EXPECT_TRUE(at.x - reach >= 0 && at.y - reach >= 0 && at.x + reach <= 22 &&
                    at.y + reach <= 22);
        for (std::size_t j = 0; j < i; j += 2) {
          EXPECT_GT(std::hypot(at.x - arcs[j].center.x, at.y - arcs[j].center.y), 2 * reach);
        }
      }
      double free = 0;
      for (std::size_t i = 0; i < pills.size(); i += 2) {
        EXPECT_GE(pills[i].origin.x, free);
        free = pills[i].origin.x + pills[i].size.width + 1;
        EXPECT_LE(free, 23);
        EXPECT_LE(pills[i].origin.y + pills[i].size.height, 22);
      }
    }
  }
}

}  // namespace
}  // namespace marigold
