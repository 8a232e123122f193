#include <cmath>
#include <regex>

#include <gtest/gtest.h>

#include "bar/MenuBarContent.h"
#include "bar/MenuBarSegments.h"
#include "bar/MenuBarWindows.h"
#include "support/SimplePorts.h"

namespace marigold {
namespace {

using Scope = MenuBarTextScope;
using Windows = std::vector<UsageWindow>;
using enum GaugeBar::Mode;
using enum MenuBarStyle;
using enum MenuBarWindowKind;

constexpr Date now{Seconds{1'781'270'000}};  // 2026-06-12 13:13:20 UTC, a Friday
const test::FixedLocalTimeText localTime;

UsageWindow five(double resetsIn = 7500) {
  return {.label = "5h", .percent = 42, .resetsAt = now + Seconds{resetsIn}};
}
UsageWindow week(double resetsIn = 90'000) {
  return {.label = "Weekly", .percent = 12.5, .resetsAt = now + Seconds{resetsIn}};
}
ProviderSnapshot reading(Windows windows, const Health& health = Health::ok(), double age = 0) {
  return {.windows = std::move(windows), .capturedAt = now - Seconds{age}, .health = health};
}

TEST(MenuBarSlots, ASlotSaysWhatItsReadingIsWorth) {
  const Health expired = Health::reconnect("sign in again");
  const Health failing = Health::serverError({});
  const UsageWindow opus{.label = "Opus", .percent = 91};
  const std::array modes{"normal", "stale", "hollow"};
  for (const auto& [snapshot, expected] : std::vector<std::pair<ProviderSnapshot, std::string>>{
           {reading({five(), week()}), "normal 42%: 5h 42% used, updated just now"},
           {reading({five()}, Health::ok(), 300), "normal 42%: 5h was 42% used, 5m ago"},
           {reading({five()}, expired, 172800),
            "hollow 2d: last reading 5h 42% used, 2d ago, sign in again"},
           {reading({five()}, expired, 7200),
            "stale 42%: 5h was 42% used, sign in again, data 2h ago"},
           {reading({five()}, Health::rateLimited({})),
            "stale 42%: 5h 42% used, throttled, data just now"},
           {reading({five()}, failing), "stale 42%: 5h 42% used, server error, data just now"},
           {reading({week()}, Health::stale("")), "stale 13%: Weekly 13% used, data just now"},
           {reading({week(), opus}), "normal 91%: Opus 91% used, updated just now"},
           // A reset that is no date neither lies ahead nor has passed.
           {reading({five(std::nan(""))}),
            "hollow \u2013: 42% used (no 5h limit), updated just now"},
           {reading({five(0), week()}, expired),
            "no gauge \u2013: 5h window reset, no new reading yet, sign in again"},
           {reading({five()}, Health::notInstalled("not found")), "no gauge \u2013: not found"},
           {reading({}, expired), "no gauge \u2013: sign in again"},
           {reading({}, failing), "no gauge \u2013: no reading"}}) {
    const MenuSlot slot = resolveMenuSlot(snapshot, fiveHour, ProviderAccent::pink, now);
    const std::string mode =
        slot.rendersGauge ? modes.at(std::to_underlying(slot.bar.mode)) : "no gauge";
    std::string spoken = slot.tooltip;
    EXPECT_EQ(mode + " " + slot.token + spoken.substr(spoken.find(':')), expected);
    if (slot.rendersGauge) {
      spoken.erase(spoken.find(':'), 1);
      spoken.erase(std::min(spoken.find(" used,"), spoken.size()), 5);
    }
    EXPECT_EQ(slot.spoken, spoken);
    EXPECT_FALSE(slot.bar.mode == hollow && slot.resetsAt) << expected;
    EXPECT_EQ(slot.bar.accent, ProviderAccent::pink);
    // The same line but for the age, which only a reading has.
    std::string aged = slot.tooltipWithoutAge;
    if (slot.age) {
      const std::string& ending = slot.age->phrase;
      aged.insert(std::min(slot.tooltip.rfind(ending), aged.size()), ending);
    }
    EXPECT_EQ(aged, slot.tooltip);
  }
  const MenuSlot off = resolveMenuSlot(reading({five()}, Health::turnedOff()), automatic, {}, now);
  EXPECT_EQ(off.tooltip, "Claude: usage reading is off");
  EXPECT_EQ(off.spoken, "Claude: usage reading is off, turn it back on in Marigold's menu");
  EXPECT_FALSE(off.rendersGauge || off.windowLabel || off.age);
  EXPECT_EQ(resolveMenuSlot(reading({five(0), week()}), automatic, {}, now).token, "13%");
}

TEST(MenuBarSlots, ChoicesFollowWhatIsOffered) {
  const MenuBarTextPrefs prefs{.percent = Scope::weekly};
  // How many scopes, the last one's title; what shows a stored `both`; what `weekly` comes to.
  for (const auto& [windows, expected] :
       std::vector<std::pair<Windows, std::string>>{{{five(), week()}, "4 Both; both; weekly"},
                                                    {{five()}, "2 On; fiveHour; both"},
                                                    {{week()}, "2 On; weekly; both"},
                                                    {{}, "2 On; both; both"}}) {
    const ProviderSnapshot snapshot = reading(windows);
    const auto offered = availableTextScopes(&snapshot);
    std::string text = std::to_string(offered.size()) + " ";
    text.append(textScopeTitle(offered.back(), offered)).append("; ");
    text.append(rawValue(displayedTextScope(Scope::both, offered)));
    text.append("; ").append(rawValue(prefs.effective(&snapshot).percent));
    EXPECT_EQ(text, expected);
    EXPECT_EQ(prefs.effective(&snapshot).reset, Scope::off);
  }
  EXPECT_EQ(textScopeTitle(Scope::off, std::array{Scope::off, Scope::both}), "Off");
  EXPECT_EQ(displayedTextScope(Scope::weekly, {}), Scope::weekly);
  EXPECT_EQ(prefs.effective(nullptr), prefs);
  EXPECT_EQ(availableMenuWindowKinds(reading({week()})), (std::vector{automatic, weekly}));
  const ProviderSnapshot two = reading({five(), week()});
  EXPECT_EQ(menuGaugeWindow(automatic, two, prefs), weekly);
  EXPECT_EQ(menuGaugeWindow(automatic, two, {.percent = Scope::both}), fiveHour);
  EXPECT_EQ(menuGaugeWindow(automatic, two, {.percent = Scope::off}), automatic);
  EXPECT_EQ(menuGaugeWindow(automatic, reading({week()}), {.percent = Scope::both}), weekly);
  EXPECT_EQ(menuGaugeWindow(weekly, reading({}), {}), weekly) << "kept while nothing is known";
}

// What is drawn (label, token and reset of the outer, then of the inner window), and the tooltips
// less what they have in common.
std::string shown(const MenuGauge& gauge, MenuBarStyle style) {
  const MenuBarSegment s = menuBarSegment(gauge, style, now);
  EXPECT_EQ(s.bar, gauge.outer.bar);
  EXPECT_EQ(s.inner.has_value(), gauge.inner.has_value());
  EXPECT_EQ(s.rendersInner, !gauge.inner || gauge.inner->rendersGauge);
  std::string text = isDrawn(gauge) ? "" : "left out ";
  for (const auto& part : {s.label, s.token, s.reset, s.innerLabel, s.innerToken, s.innerReset}) {
    text += part.value_or("-") + " ";
  }
  const MenuSegmentLines said = menuSegmentLines(gauge, s, now, localTime);
  for (std::size_t i = 0; i < said.tooltip.size(); ++i) {
    static const std::regex common("Claude: | used, updated just now");
    const std::string line = std::regex_replace(said.tooltip[i], common, "");
    text += "| " + line;
    const auto reset = line.find(", resets ");
    const std::string ending = reset != std::string::npos ? line.substr(reset) : "";
    EXPECT_TRUE(said.tooltipWithoutAges.at(i).ends_with(ending) &&
                said.spoken.at(i).ends_with(ending));
  }
  return text;
}

TEST(MenuBarSlots, AGaugeShowsAndPrintsWhatIsWanted) {
  const auto expect = [](const std::string& expected, const ProviderSnapshot& snapshot,
                         MenuBarWindowKind kind, const MenuBarTextPrefs& prefs,
                         MenuBarStyle style = rings, RingColorMode colors = {}) {
    const MenuGauge gauge =
        resolveMenuGauge(snapshot, kind, prefs, style, ProviderAccent::slate, colors, now);
    EXPECT_EQ(shown(gauge, style), expected);
    EXPECT_EQ(gauge.outer.bar.accent == ProviderAccent::slate, colors == RingColorMode::byUsage);
  };
  constexpr auto byWindow = RingColorMode::byWindow;
  const ProviderSnapshot two = reading({five(), week()});
  expect("5h 42% 2h05m wk 13% 1d01h | 5h 42%, resets in 2h 5m| Weekly 13%, resets Sat 14:13", two,
         fiveHour, {Scope::both, Scope::both, true}, pills);
  expect("- 42% - - 13% - | 5h 42%, teal| Weekly 13%, purple", two, automatic,
         {Scope::both, Scope::off, false}, rings, byWindow);
  expect("- - - wk 13% - | 5h 42%| Weekly 13%", two, fiveHour, {Scope::weekly, Scope::off, false});
  expect("5h - 2h05m - - - | 5h 42%, resets in 2h 5m| Weekly 13%", two, fiveHour,
         {Scope::off, Scope::fiveHour, true});
  expect("- - - - - - | Weekly 13%| 5h 42%", two, weekly, {Scope::off, Scope::off, true});
  expect("- - - - 13% - | 5h 42%| Weekly 13%", two, fiveHour, {Scope::weekly, Scope::off, false},
         pills);
  expect("- - - - - 1d01h | 5h 42%| Weekly 13%, resets Sat 14:13", two, fiveHour,
         {Scope::off, Scope::weekly, false}, pills);
  expect("- 42% - - - - | 5h 42%", two, fiveHour, {Scope::fiveHour, Scope::off, false}, pills);
  expect("- - - - 42% - | Weekly 13%| 5h 42%", two, weekly, {Scope::fiveHour, Scope::off, false},
         pills);
  expect("- - - - - - | 5h 42%, teal| Weekly window reset, no new reading yet",
         reading({five(), week(0)}), fiveHour, {Scope::off, Scope::off, false}, rings, byWindow);
  expect("- - - - - - | 5h window reset, no new reading yet| Weekly 13%",
         reading({five(0), week()}), fiveHour, {Scope::off, Scope::off, false}, pills);
  expect("5h \u2013 - - - - | 5h window reset, no new reading yet", reading({five(0)}), fiveHour,
         {Scope::both, Scope::both, true});
  expect("left out - \u2013 - - - - | usage reading is off",
         reading({five(), week()}, Health::turnedOff()), automatic,
         {Scope::both, Scope::both, true}, rings, byWindow);
  expect("left out - - - - - - | not found", reading({five()}, Health::notInstalled("not found")),
         automatic, {Scope::off, Scope::off, false}, rings, byWindow);
}

TEST(MenuBarSlots, ATooltipNamesTheColour) {
  EXPECT_EQ(menuSlotColorWord({.percent = 89.9, .mode = normal}), std::nullopt);
  EXPECT_EQ(menuSlotColorWord({.percent = 90, .mode = normal}), "red");
  EXPECT_EQ(menuSlotColorWord({.percent = 90, .mode = stale}), "grey");
  EXPECT_EQ(menuSlotColorWord({.mode = hollow, .accent = ProviderAccent::pink}), std::nullopt);
  EXPECT_EQ(slotAccent(RingColorMode::byWindow, {}, "Opus"), ProviderAccent::automatic);
  EXPECT_EQ(slotAccent(RingColorMode::byUsage, ProviderAccent::pink, "5h"), ProviderAccent::pink);
}

TEST(MenuBarSlots, CountdownsTruncateAndSaturate) {
  using Row = std::tuple<double, std::string, std::string>;
  for (const auto& [seconds, token, text] :
       {Row{0, "", "window reset, no new reading yet"},
        Row{std::nan(""), "", "window reset, no new reading yet"}, Row{0.5, "1m", "resets in 1m"},
        Row{3599, "59m", "resets in 59m"}, Row{3600, "1h00m", "resets in 1h 0m"},
        Row{4200, "1h10m", "resets in 1h 10m"}, Row{86400, "1d00h", "resets Sat 13:13"},
        Row{14400 * 60, "10d", "resets Mon 13:13"}, Row{1e300, "2912280d", "resets Fri 23:59"}}) {
    EXPECT_EQ(menuResetToken(now + Seconds{seconds}, now).value_or(""), token) << seconds;
    EXPECT_EQ(windowResetText(now + Seconds{seconds}, now, localTime), text) << seconds;
  }
  EXPECT_EQ(menuResetToken(now + Seconds{14399 * 60.0}, now), "9d23h");
  EXPECT_EQ(windowResetText({}, now, localTime), std::nullopt);
  for (const auto& [seconds, age] : std::vector<std::pair<double, std::string>>{
           {30, "1m"}, {3599, "59m"}, {3600, "1h"}, {86399, "23h"}, {86400, "1d"}, {9e6, "99d"}}) {
    EXPECT_EQ(shortAge(seconds), age);
  }
}

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
