#include <gtest/gtest.h>

#include "bar/ResetDrain.h"

namespace marigold {
namespace {

const Date now = dateFromEpoch(1781271642.0);
using Mode = GaugeBar::Mode;

Date in(double seconds) {
  return now + Seconds{seconds};
}

TEST(ResetDrain, DrainsWhatResetWithinAMinuteAndWasNotReadAgain) {
  const auto drains = [](const MenuSlotMemo& before, const MenuSlotMemos& after) {
    return menuResetDrains({{"codex|5h", before}}, after, now) == MenuDrains{{"codex|5h", 80}};
  };
  const MenuSlotMemo reset{.mode = Mode::normal, .percent = 80, .resetsAt = in(-1)};
  using Row = std::tuple<Mode, std::optional<Date>, bool>;
  for (const auto& [mode, resetsAt, expected] :
       {Row{Mode::normal, now, true}, Row{Mode::normal, in(-59), true},
        Row{Mode::normal, in(-60), false}, Row{Mode::normal, in(1), false},
        Row{Mode::normal, {}, false}, Row{Mode::hollow, in(-1), false},
        Row{Mode::stale, in(-1), false}}) {
    const MenuSlotMemo before{.mode = mode, .percent = 80, .resetsAt = resetsAt};
    EXPECT_EQ(drains(before, {{"codex|5h", {}}}), expected) << static_cast<int>(mode);
  }
  const MenuSlotMemo later{.mode = Mode::normal, .resetsAt = in(18000)};
  EXPECT_FALSE(drains(reset, {{"codex|5h", later}})) << "read again";
  EXPECT_FALSE(drains(reset, {{"codex|5h", {.mode = Mode::normal, .percent = 2}}}));
  EXPECT_FALSE(drains(reset, {{"codex|Weekly", {}}})) << "no longer shown";
  EXPECT_EQ(drainFrames(80, 4), (std::vector<double>{33.75, 10, 1.25, 0}));
  EXPECT_EQ(drainFrames(80, 1), std::vector<double>{0});
}

TEST(ResetDrain, OnlyTheDrainingBarIsReplaced) {
  MenuGauge gauge{.outer = {.windowLabel = "5h"}, .inner = MenuSlot{.windowLabel = "Weekly"}};
  gauge.outer.bar.accent = ProviderAccent::teal;
  gauge.inner->bar.accent = ProviderAccent::purple;
  const MenuBarSegment segment{.bar = gauge.outer.bar,
                               .token = "–",
                               .inner = gauge.inner->bar,
                               .rendersBar = false,
                               .rendersInner = false};
  MenuBarSegment outer = segment;
  outer.bar = {.percent = 33, .mode = Mode::normal, .accent = ProviderAccent::teal};
  outer.rendersBar = true;
  MenuBarSegment inner = segment;
  inner.inner = {.percent = 5, .mode = Mode::normal, .accent = ProviderAccent::purple};
  inner.rendersInner = true;
  const auto drained = [&](const MenuDrains& drains) {
    return drainedSegment(segment, gauge, ProviderID::codex, drains);
  };
  EXPECT_EQ(drained({{"codex|5h", 33}, {"claude|Weekly", 5}}), outer);
  EXPECT_EQ(drained({{"claude|5h", 33}, {"codex|Weekly", 5}}), inner);
}

TEST(ResetDrain, ADrainRunsOnceUntilItsWindowIsReadAgainOrGone) {
  const MenuSlotMemos full{{"codex|5h", {.mode = Mode::normal, .percent = 80, .resetsAt = now}}};
  const MenuSlotMemos unread{{"codex|5h", {}}};
  RunningDrains drains;
  for (const auto& [end, reduceMotion] : std::vector<std::pair<MenuSlotMemos, bool>>{
           {full, false}, {{{"codex|Weekly", {}}}, false}, {unread, true}}) {
    drains.redraw(full, now, false);
    drains.redraw(unread, in(1), false);
    double last = 80;
    for (int frame = 1; frame < RunningDrains::frameCount; ++frame) {
      drains.step();
      drains.redraw(unread, in(2), false);
      const double shown = drains.percentages().at("codex|5h");
      EXPECT_LT(shown, last);
      last = shown;
    }
    EXPECT_EQ(last, 0);
    drains.step();
    drains.redraw(unread, in(2), false);
    EXPECT_TRUE(drains.empty()) << "once";
    drains.redraw(full, now, false);
    drains.redraw(unread, in(1), false);
    drains.redraw(end, in(1), reduceMotion);
    EXPECT_TRUE(drains.empty()) << "read again, gone, motion reduced";
  }
}

}  // namespace
}  // namespace marigold
