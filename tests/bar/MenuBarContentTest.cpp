#include <gtest/gtest.h>

#include "bar/MenuBarContent.h"
#include "support/SimplePorts.h"

namespace marigold {
namespace {

constexpr Date now{Seconds{1'781'270'000}};
const test::FixedLocalTimeText localTime;

ProviderSnapshot reading(ProviderID provider, double percent, double age = 0) {
  return {.provider = provider,
          .windows = {{.label = "5h", .percent = percent, .resetsAt = now + Seconds{7500}},
                      {.label = "Weekly", .percent = 12, .resetsAt = now + Seconds{7000}}},
          .capturedAt = now - Seconds{age}};
}

struct MenuBarContentTest : testing::Test {
  test::MemoryDefaults defaults;
  Preferences chosen{defaults};

  [[nodiscard]] MenuBarContent content(const std::vector<ProviderSnapshot>& snapshots,
                                       const MenuDrains& drains = {}, bool present = true) const {
    return menuBarContent(resolveMenuBar(snapshots, chosen, now), drains, present, now, localTime);
  }
};

TEST_F(MenuBarContentTest, JoinsTheLinesOfSlotsAndProviders) {
  chosen.setPercentScope(ProviderID::codex, MenuBarTextScope::both);
  chosen.setResetScope(ProviderID::codex, MenuBarTextScope::weekly);
  ProviderSnapshot grok = reading(ProviderID::grok, 20, 400);
  grok.windows.pop_back();
  ProviderSnapshot absent{.provider = ProviderID::claude};
  absent.health = Health::notInstalled("not found");
  EXPECT_EQ(
      content({absent, reading(ProviderID::codex, 37), grok}),
      (MenuBarContent{.segments = content({reading(ProviderID::codex, 37), grok}).segments,
                      .isIdle = false,
                      .label = "37% 12% 1h56m | 20%",
                      .tooltip = "Claude: not found\nCodex: 5h 37% used, updated just now\n"
                                 "Codex: Weekly 12% used, updated just now, resets in 1h 56m\n"
                                 "Grok: 5h was 20% used, 6m ago",
                      .tooltipWithoutAges = "Claude: not found\nCodex: 5h 37% used, updated \n"
                                            "Codex: Weekly 12% used, updated , resets in 1h 56m\n"
                                            "Grok: 5h was 20% used, ",
                      .title = "Codex: 5h 37% used, updated just now",
                      .spoken = "Claude: not found; Codex 5h 37%, updated just now; "
                                "Codex Weekly 12%, updated just now, resets in 1h 56m; "
                                "Grok 5h was 20%, 6m ago"}));
  chosen.setPercentScope(ProviderID::codex, MenuBarTextScope::off);
  chosen.setResetScope(ProviderID::codex, MenuBarTextScope::off);
  EXPECT_EQ(content({reading(ProviderID::codex, 37), grok}).label, "20%") << "nothing has no bar";
  EXPECT_EQ(content({absent, absent}).title, "Claude: not found");
  chosen.setPercentScope(ProviderID::codex, MenuBarTextScope::weekly);
  chosen.setMenuWindow(ProviderID::codex, MenuBarWindowKind::fiveHour);
  EXPECT_EQ(content({reading(ProviderID::codex, 37)}).label, "wk 12%");
  chosen.setMenuBarStyle(MenuBarStyle::pills);
  EXPECT_EQ(content({reading(ProviderID::codex, 37)}).label, "12%");
}

TEST_F(MenuBarContentTest, IsIdleUntilAGaugeIsRenderedOrDrains) {
  ProviderSnapshot past = reading(ProviderID::codex, 80);
  for (UsageWindow& window : past.windows) {
    window.resetsAt = now;
  }
  const MenuBarContent idle = content({past});
  EXPECT_TRUE(idle.isIdle && idle.label.empty());
  EXPECT_FALSE(content({past, reading(ProviderID::grok, 1)}).isIdle);
  past.windows.back().resetsAt.reset();
  EXPECT_FALSE(content({past}).isIdle) << "the inner window alone";
  EXPECT_EQ(content({past}).title, "Codex: Weekly 12% used, updated just now");
  past.windows.pop_back();
  const MenuBarContent draining = content({past}, {{"codex|5h", 33}});
  EXPECT_TRUE(!draining.isIdle && draining.label.empty());
  EXPECT_EQ(draining.segments.front().bar.percent, 33);

  for (const auto& [present, tooltip, spoken] :
       {std::tuple(false, "Marigold: no data yet", "Marigold, no data yet"),
        {true, "Marigold: no providers shown in the menu bar. Enable one in the popover.",
         "Marigold, no providers shown in the menu bar. Open Marigold to enable one."}}) {
    EXPECT_EQ(content({}, {}, present), (MenuBarContent{.tooltip = tooltip,
                                                        .tooltipWithoutAges = tooltip,
                                                        .title = tooltip,
                                                        .spoken = spoken}));
  }
}

TEST_F(MenuBarContentTest, KeepsTheWidthUnderAnOpenPopover) {
  EXPECT_EQ(pinnedMarkWidth(40, 52, true), 52);
  EXPECT_EQ(pinnedMarkWidth(60, 52, true), 60);
  EXPECT_EQ(pinnedMarkWidth(40, 52, false), 40);
  EXPECT_EQ(pinnedMarkWidth(40, std::nullopt, true), 40);
}

TEST_F(MenuBarContentTest, AsksForTheNextMomentThatLooksDifferent) {
  const auto in = [](double seconds) { return now + Seconds{seconds}; };
  const auto next = [](const std::vector<Date>& countdowns, const std::vector<Date>& resets) {
    const auto date = nextMenuRepaint(now, countdowns, resets);
    return date ? std::optional(secondsBetween(now, *date)) : std::nullopt;
  };
  EXPECT_EQ(next({}, {}), std::nullopt);
  EXPECT_EQ(next({in(-5), now}, {in(-5)}), std::nullopt) << "what is past changes no more";
  EXPECT_EQ(next({in(90), in(40)}, {}), 40.25);
  EXPECT_EQ(next({in(40)}, {in(125.5)}), 5.75) << "the minute count of a token";
  EXPECT_EQ(menuRepaintDelay(now, in(40)), Seconds{40});
  EXPECT_EQ(menuRepaintDelay(now, in(-40)), Seconds{0.25});

  const auto nextOf = [&](const std::vector<ProviderSnapshot>& bar,
                          const std::vector<ProviderSnapshot>& cards) {
    const auto times = menuRepaintTimes(resolveMenuBar(bar, chosen, now), cards, now);
    return next(times.countdowns, times.resets);
  };
  using Row = std::pair<double, double>;
  for (const auto& [age, older] : {Row{0, 90}, Row{89, 1}, Row{90, 30}, Row{299, 1}, Row{3599, 1},
                                   Row{3600, 3600}, Row{86399, 1}, Row{86400, 86400}}) {
    const ProviderSnapshot unlimited{.windows = {{.label = "5h"}}, .capturedAt = in(-age)};
    EXPECT_EQ(nextOf({unlimited}, {}), older + 0.25) << age;
    EXPECT_EQ(nextOf({}, {unlimited}), older + 0.25) << age;
    // Nothing that is shown may change before.
    EXPECT_EQ(relativeAge(age), relativeAge(age + older - 0.01)) << age;
    EXPECT_NE(relativeAge(age), relativeAge(age + older)) << age;
  }
  // Resets after 7500 and 7000 seconds, that is 0 and 40 after whole minutes.
  const std::vector<ProviderSnapshot> old{reading(ProviderID::codex, 5, 3600)};
  EXPECT_EQ(nextOf(old, {}), 3600.25) << "no countdown is printed";
  EXPECT_EQ(nextOf({}, old), 0.25) << "a card counts all of them down";
  chosen.setResetScope(ProviderID::codex, MenuBarTextScope::weekly);
  EXPECT_EQ(nextOf(old, {}), 40.25) << "the inner countdown";
  chosen.setResetScope(ProviderID::codex, MenuBarTextScope::fiveHour);
  EXPECT_EQ(nextOf(old, {}), 0.25) << "the outer countdown";
  chosen.setMenuBarStyle(MenuBarStyle::pills);
  ProviderSnapshot hidden = reading(ProviderID::grok, 5, 3600);
  hidden.windows.back().resetsAt = in(7);
  EXPECT_EQ(nextOf({hidden}, {}), 7.25) << "may change what is shown";
}

}  // namespace
}  // namespace marigold
