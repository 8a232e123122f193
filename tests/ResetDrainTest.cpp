#include <gtest/gtest.h>

#include "ResetDrain.h"

namespace marigold {
namespace {

const Date now = dateFromEpoch(1781271642.0);
using Mode = GaugeBar::Mode;

Date in(double seconds) {
  return now + Seconds{seconds};
}

TEST(ResetDrainTest, DrainsWhatResetWithinAMinuteAndWasNotReadAgain) {
  const MenuSlotMemo unread{};
  struct Row {
    const char* name;
    MenuSlotMemo before;
    std::optional<MenuSlotMemo> after;
    bool drains;
  };
  const MenuSlotMemo reset{.mode = Mode::normal, .percent = 80, .resetsAt = in(-1)};
  const std::vector<Row> rows{
      {"just reset", reset, unread, true},
      {"at this moment", {.mode = Mode::normal, .percent = 80, .resetsAt = now}, unread, true},
      {"59 s ago", {.mode = Mode::normal, .percent = 80, .resetsAt = in(-59)}, unread, true},
      {"60 s ago", {.mode = Mode::normal, .percent = 80, .resetsAt = in(-60)}, unread, false},
      {"to come", {.mode = Mode::normal, .percent = 80, .resetsAt = in(1)}, unread, false},
      {"stale", {.mode = Mode::stale, .percent = 80, .resetsAt = in(-1)}, unread, false},
      {"no date", {.mode = Mode::normal, .percent = 80}, unread, false},
      {"read again, later reset", reset,
       MenuSlotMemo{.mode = Mode::normal, .percent = 0, .resetsAt = in(18000)}, false},
      {"read again, no reset", reset, MenuSlotMemo{.mode = Mode::normal, .percent = 2}, false},
      {"no longer shown", reset, std::nullopt, false},
  };
  for (const Row& row : rows) {
    MenuSlotMemos after;
    if (row.after) {
      after["codex|5h"] = *row.after;
    }
    const MenuDrains drains = menuResetDrains({{"codex|5h", row.before}}, after, now);
    EXPECT_EQ(drains, row.drains ? (MenuDrains{{"codex|5h", 80}}) : MenuDrains{}) << row.name;
  }
}

TEST(ResetDrainTest, FramesEaseOutToNothing) {
  const std::vector<double> expected{33.75, 10, 1.25, 0};
  EXPECT_EQ(drainFrames(80, 4), expected);
  EXPECT_EQ(drainFrames(80, 1), std::vector<double>{0});
}

TEST(ResetDrainTest, OnlyTheDrainingBarIsReplaced) {
  MenuGauge gauge{.outer = {.windowLabel = "5h"}, .inner = MenuSlot{.windowLabel = "Weekly"}};
  gauge.outer.bar.accent = ProviderAccent::teal;
  const MenuBarSegment segment{.bar = gauge.outer.bar,
                               .token = "–",
                               .inner = gauge.inner->bar,
                               .rendersBar = false,
                               .rendersInner = false};
  MenuBarSegment expected = segment;
  expected.bar = {.percent = 33, .mode = Mode::normal, .accent = ProviderAccent::teal};
  expected.rendersBar = true;
  EXPECT_EQ(
      drainedSegment(segment, gauge, ProviderID::codex, {{"codex|5h", 33}, {"claude|Weekly", 5}}),
      expected);
}

TEST(ResetDrainTest, AsksForTheNextMomentThatLooksDifferent) {
  const auto next = [](std::vector<Date> countdowns, std::vector<Date> resets) {
    const auto date = nextMenuRepaint(now, countdowns, resets);
    return date ? std::optional(secondsBetween(now, *date)) : std::nullopt;
  };
  EXPECT_EQ(next({}, {}), std::nullopt);
  EXPECT_EQ(next({in(-5), now}, {in(-5)}), std::nullopt) << "what is past changes no more";
  EXPECT_EQ(next({in(90), in(40)}, {}), 40.25);
  EXPECT_EQ(next({in(40)}, {in(125.5)}), 5.75) << "the minute count of a token";

  struct Row {
    double age;
    double next;
  };
  for (const Row& row : {Row{0, 90}, Row{89, 1}, Row{90, 30}, Row{299, 1}, Row{3599, 1},
                         Row{3600, 3600}, Row{86399, 1}, Row{86400, 86400}}) {
    MenuRepaintTimes times;
    const MenuGauge gauge{.outer = {.age = readingAge(row.age)}};
    addMenuRepaintTimes(times, {}, gauge, {}, now);
    EXPECT_EQ(next(times.countdowns, times.resets), row.next + 0.25) << row.age;
    // Nothing that is shown may change before.
    EXPECT_EQ(relativeAge(row.age), relativeAge(row.age + row.next - 0.01)) << row.age;
    EXPECT_NE(relativeAge(row.age), relativeAge(row.age + row.next)) << row.age;
  }
  MenuRepaintTimes times;
  const UsageWindow notShown{.label = "Weekly", .resetsAt = in(7)};
  addMenuRepaintTimes(times, {{notShown}}, {}, {}, now);
  EXPECT_EQ(next(times.countdowns, times.resets), 7.25) << "its reset may change what is shown";
}

TEST(ResetDrainTest, IsIdleUntilSomeGaugeIsRendered) {
  const MenuSlot renders{.rendersGauge = true};
  const MenuSlot nothing;
  const auto idle = [](std::vector<const MenuSlot*> outer, std::vector<const MenuSlot*> inner) {
    return menuBarShowsIdle(outer, inner);
  };
  EXPECT_TRUE(idle({}, {}));
  EXPECT_TRUE(idle({&nothing, &nothing}, {nullptr, &nothing}));
  EXPECT_FALSE(idle({&nothing, &renders}, {nullptr, nullptr}));
  EXPECT_FALSE(idle({&nothing}, {&renders}));
}

TEST(ResetDrainTest, KeepsTheWidthUnderAnOpenPopover) {
  EXPECT_EQ(pinnedMarkWidth(40, 52, true), 52);
  EXPECT_EQ(pinnedMarkWidth(60, 52, true), 60);
  EXPECT_EQ(pinnedMarkWidth(40, 52, false), 40);
  EXPECT_EQ(pinnedMarkWidth(40, std::nullopt, true), 40);
}

}  // namespace
}  // namespace marigold
