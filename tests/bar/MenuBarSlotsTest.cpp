#include <cmath>
#include <regex>

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace marigold
