#include <array>
#include <cmath>
#include <tuple>

#include <gtest/gtest.h>

#include "MenuBarSlots.h"
#include "support/FixedLocalTimeText.h"

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
  }
  const MenuSlot off = resolveMenuSlot(reading({five()}, Health::turnedOff()), automatic, {}, now);
  EXPECT_EQ(off.spoken, "Claude: usage reading is off, turn it back on in Marigold's menu");
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
    text.append("; ").append(rawValue(effectivePrefs(prefs, &snapshot).percent));
    EXPECT_EQ(text, expected);
  }
  EXPECT_EQ(effectivePrefs(prefs, nullptr), prefs);
  EXPECT_EQ(availableMenuWindowKinds(reading({week()})), (std::vector{automatic, weekly}));
  EXPECT_EQ(menuGaugeWindow(automatic, reading({five(), week()}), prefs), weekly);
}

MenuGauge gauge(const ProviderSnapshot& snapshot, MenuBarWindowKind kind, MenuBarTextPrefs prefs,
                MenuBarStyle style = rings, RingColorMode colors = RingColorMode::byUsage) {
  return resolveMenuGauge(snapshot, kind, prefs, style, ProviderAccent::slate, colors, now);
}

TEST(MenuBarSlots, TheOtherWindowIsResolvedWhenThereIsAUseForIt) {
  for (const auto& [windows, kind, percent, style, inner] :
       std::vector<std::tuple<Windows, MenuBarWindowKind, Scope, MenuBarStyle, std::string>>{
           {{five(), week()}, fiveHour, Scope::off, rings, "Weekly"},
           {{five(), week()}, fiveHour, Scope::fiveHour, pills, ""},
           {{five(), week()}, weekly, Scope::fiveHour, pills, "5h"},
           {{five(0), week()}, fiveHour, Scope::off, pills, "Weekly"}}) {
    const MenuGauge g = gauge(reading(windows), kind, {.percent = percent}, style);
    EXPECT_EQ(g.inner ? g.inner->windowLabel : "", inner) << g.outer.tooltip;
  }
}

TEST(MenuBarSlots, WindowsAreTintedAndTheirColourNamed) {
  const MenuGauge g =
      gauge(reading({five(), week()}), automatic, {}, rings, RingColorMode::byWindow);
  EXPECT_EQ(g.outer.tooltip, "Claude: 5h 42% used, updated just now, teal");
  EXPECT_EQ(g.inner ? g.inner->tooltip : "", "Claude: Weekly 13% used, updated just now, purple");
  EXPECT_EQ(menuSlotColorWord({.percent = 89.9, .mode = normal}), std::nullopt);
  EXPECT_EQ(menuSlotColorWord({.percent = 90, .mode = normal}), "red");
}

TEST(MenuBarSlots, CountdownsTruncateAndSaturate) {
  for (const auto& [seconds, token, text] :
       std::vector<std::tuple<double, std::string, std::string>>{
           {0, "", "window reset, no new reading yet"},
           {std::nan(""), "", "window reset, no new reading yet"},
           {0.5, "1m", "resets in 1m"},
           {3599, "59m", "resets in 59m"},
           {3600, "1h00m", "resets in 1h 0m"},
           {86400, "1d00h", "resets Sat 13:13"},
           {14400 * 60, "10d", "resets Mon 13:13"},
           {1e300, "2912280d", "resets Fri 23:59"}}) {
    EXPECT_EQ(menuResetToken(now + Seconds{seconds}, now).value_or(""), token) << seconds;
    EXPECT_EQ(windowResetText(now + Seconds{seconds}, now, localTime), text) << seconds;
  }
}

TEST(MenuBarSlots, ASegmentPrintsWhatIsWantedAndItsLinesTheResets) {
  // What is drawn: label, token and reset of the outer, then of the inner window.
  for (const auto& [percent, reset, labels, style, drawn] :
       std::vector<std::tuple<Scope, Scope, bool, MenuBarStyle, std::string>>{
           {Scope::both, Scope::both, true, pills, "5h 42% 2h05m wk 13% 1d01h "},
           {Scope::both, Scope::off, false, rings, "- 42% - - 13% - "},
           {Scope::weekly, Scope::off, false, rings, "- - - wk 13% - "},
           {Scope::off, Scope::weekly, false, pills, "- - - - - 1d01h "}}) {
    const MenuGauge g = gauge(reading({five(), week()}), fiveHour,
                              {.percent = percent, .reset = reset, .labels = labels}, style);
    const MenuBarSegment s = menuBarSegment(g, style, now);
    std::string text;
    for (const auto& part : {s.label, s.token, s.reset, s.innerLabel, s.innerToken, s.innerReset}) {
      text += part.value_or("-") + " ";
    }
    EXPECT_EQ(text, drawn);
    EXPECT_EQ(s.bar.percent, 42);
    const auto tooltips = menuSegmentLines(g, s, now, localTime).tooltip;
    EXPECT_EQ(tooltips.at(0).ends_with(", resets in 2h 5m"), s.reset.has_value());
    EXPECT_EQ(tooltips.at(1).ends_with(", resets Sat 14:13"), s.innerReset.has_value());
  }
}

TEST(MenuBarSlots, AnEmptyMenuBarSaysWhy) {
  EXPECT_EQ(menuBarEmptyStateText(false).tooltip, "Marigold: no data yet");
  EXPECT_EQ(menuBarEmptyStateText(false).spoken, "Marigold, no data yet");
  EXPECT_EQ(menuBarEmptyStateText(true).tooltip,
            "Marigold: no providers shown in the menu bar. Enable one in the popover.");
  EXPECT_EQ(menuBarEmptyStateText(true).spoken,
            "Marigold, no providers shown in the menu bar. Open Marigold to enable one.");
}

}  // namespace
}  // namespace marigold
