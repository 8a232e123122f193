#include <array>
#include <limits>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MenuBarSlots.h"
#include "support/FixedLocalTimeText.h"

namespace marigold {
namespace {

using testing::ElementsAre;
using Kind = MenuBarWindowKind;
using Scope = MenuBarTextScope;
using Accent = ProviderAccent;
using Windows = std::vector<UsageWindow>;
using enum GaugeBar::Mode;
using enum MenuBarStyle;

constexpr Date now{Seconds{1'781'270'000}};  // 2026-06-12 13:13:20 UTC, a Friday
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

UsageWindow window(const char* label, double percent, double resetsIn) {
  return {.label = label, .percent = percent, .resetsAt = now + Seconds{resetsIn}};
}
UsageWindow five(double resetsIn = 7500) {
  return window("5h", 42, resetsIn);
}
UsageWindow week(double resetsIn = 90'000) {
  return window("Weekly", 12.5, resetsIn);
}
UsageWindow opus() {
  return {.label = "Opus", .percent = 91};
}

ProviderSnapshot reading(Windows windows, Health health = Health::ok(), double age = 0) {
  return {
      .windows = std::move(windows), .capturedAt = now - Seconds{age}, .health = std::move(health)};
}

TEST(MenuBarSlots, ASlotSaysWhatItsReadingIsWorth) {
  const Health expired = Health::reconnect("sign in again");
  const Health ok = Health::ok();
  using Row =
      std::tuple<ProviderSnapshot, Kind, std::string, std::string, std::string, GaugeBar::Mode>;
  const std::vector<Row> rows{
      {reading({five(), week()}), Kind::automatic, "42%", "Claude: 5h 42% used, updated just now",
       "Claude 5h 42%, updated just now", normal},
      {reading({five(), week()}, ok, -50), Kind::weekly, "13%",
       "Claude: Weekly 13% used, updated just now", "Claude Weekly 13%, updated just now", normal},
      {reading({five()}, ok, 299), Kind::fiveHour, "42%", "Claude: 5h 42% used, updated 4m ago",
       "Claude 5h 42%, updated 4m ago", normal},
      {reading({five()}, ok, 300), Kind::fiveHour, "42%", "Claude: 5h was 42% used, 5m ago",
       "Claude 5h was 42%, 5m ago", normal},
      {reading({five()}, ok, 86400), Kind::fiveHour, "42%", "Claude: 5h was 42% used, 1d ago",
       "Claude 5h was 42%, 1d ago", normal},
      {reading({five()}, ok, 2 * 86400), Kind::fiveHour, "2d",
       "Claude: last reading 5h 42% used, 2d ago", "Claude last reading 5h 42%, 2d ago", hollow},
      {reading({five()}, expired, 86401), Kind::fiveHour, "1d",
       "Claude: last reading 5h 42% used, 1d ago, sign in again",
       "Claude last reading 5h 42%, 1d ago, sign in again", hollow},
      {reading({five()}, expired, 7200), Kind::fiveHour, "42%",
       "Claude: 5h was 42% used, sign in again, data 2h ago",
       "Claude 5h was 42%, sign in again, data 2h ago", stale},
      {reading({five()}, Health::stale("why"), 100), Kind::fiveHour, "42%",
       "Claude: 5h 42% used, data 1m ago", "Claude 5h 42%, data 1m ago", stale},
      {reading({five()}, Health::rateLimited(now), 100), Kind::fiveHour, "42%",
       "Claude: 5h 42% used, throttled, data 1m ago", "Claude 5h 42%, throttled, data 1m ago",
       stale},
      {reading({five()}, Health::serverError({}), 100), Kind::fiveHour, "42%",
       "Claude: 5h 42% used, server error, data 1m ago", "Claude 5h 42%, server error, data 1m ago",
       stale},
      // What the provider does not offer gives way; what has ended does so only to the automatic.
      {reading({week(), opus()}), Kind::fiveHour, "91%", "Claude: Opus 91% used, updated just now",
       "Claude Opus 91%, updated just now", normal},
      {reading({five(0), week()}), Kind::automatic, "13%",
       "Claude: Weekly 13% used, updated just now", "Claude Weekly 13%, updated just now", normal},
      // A reset that is no date neither lies ahead nor has passed.
      {reading({five(nan)}), Kind::fiveHour, "\u2013",
       "Claude: 42% used (no 5h limit), updated just now",
       "Claude 42% used (no 5h limit), updated just now", hollow},
      {reading({week(nan)}, expired, 300), Kind::automatic, "\u2013",
       "Claude: was 13% used (no that limit), sign in again, data 5m ago",
       "Claude was 13% used (no that limit), sign in again, data 5m ago", hollow},
  };
  for (const auto& [snapshot, kind, token, tooltip, spoken, mode] : rows) {
    MenuSlot expected{.bar = {.mode = mode, .accent = Accent::pink},
                      .token = token,
                      .tooltip = tooltip,
                      .spoken = spoken,
                      .rendersGauge = true,
                      .age = readingAge(secondsBetween(snapshot.capturedAt, now))};
    for (const UsageWindow& shown : snapshot.windows) {
      if (token != noReadingToken && tooltip.find(shown.label) != std::string::npos) {
        expected.bar.percent = shown.percent;
        expected.windowLabel = shown.label;
        expected.resetsAt = mode == hollow ? std::nullopt : shown.resetsAt;
      }
    }
    const MenuSlot slot = resolveMenuSlot(snapshot, kind, Accent::pink, now);
    EXPECT_EQ(slot, expected) << slot.token << "\n" << slot.tooltip << "\n" << slot.spoken;
  }
}

TEST(MenuBarSlots, ASlotWithoutAGaugeSaysWhy) {
  const Health expired = Health::reconnect("sign in again");
  const Health missing = Health::notInstalled("not found");
  const std::string off = "Claude: usage reading is off";
  const std::string ended = "Claude: 5h window reset, no new reading yet";
  using Row =
      std::tuple<ProviderSnapshot, Kind, std::string, std::string, std::optional<std::string>>;
  for (const auto& [snapshot, kind, tooltip, furtherSpoken, label] : std::vector<Row>{
           {reading({five()}, Health::turnedOff()),
            Kind::automatic,
            off,
            ", turn it back on in Marigold's menu",
            {}},
           {reading({five()}, missing), Kind::fiveHour, "Claude: not found", "", {}},
           {reading({}, expired), Kind::automatic, "Claude: sign in again", "", {}},
           {reading({}), Kind::fiveHour, "Claude: no reading", "", {}},
           {reading({}, Health::serverError({})), Kind::weekly, "Claude: no reading", "", {}},
           {reading({five(0), week()}), Kind::fiveHour, ended, "", "5h"},
           {reading({five(0)}, expired), Kind::fiveHour, ended + ", sign in again", "", "5h"},
           {reading({week(-60), five(-60)}), Kind::automatic, ended, "", "5h"}}) {
    const MenuSlot expected{.bar = {.percent = 0, .mode = hollow, .accent = Accent::blue},
                            .token = "\u2013",
                            .tooltip = tooltip,
                            .spoken = tooltip + furtherSpoken,
                            .windowLabel = label};
    EXPECT_EQ(resolveMenuSlot(snapshot, kind, Accent::blue, now), expected) << tooltip;
  }
}

/// The stored forms of a list of choices.
std::string names(const auto& choices) {
  std::string text;
  for (const auto choice : choices) {
    text.append(text.empty() ? "" : " ").append(rawValue(choice));
  }
  return text;
}

TEST(MenuBarSlots, ChoicesFollowWhatIsOffered) {
  const MenuBarTextPrefs weekly{.percent = Scope::weekly, .reset = Scope::off, .labels = true};
  // Kinds; what asking for the five-hour window becomes; what an automatic gauge follows when the
  // weekly text is wanted; scopes; which one shows a stored `both`, and its title; the weekly text.
  for (const auto& [windows, expected] : std::vector<std::pair<Windows, std::string>>{
           {{five(), week()},
            "auto fiveHour weekly|fiveHour|weekly|off fiveHour weekly both|both Both|weekly"},
           {{opus(), five()}, "auto fiveHour|fiveHour|auto|off fiveHour|fiveHour On|both"},
           {{week()}, "auto weekly|auto|weekly|off weekly|weekly On|both"},
           {{opus()}, "auto|auto|auto|off both|both On|both"},
           {{}, "auto|fiveHour|auto|off both|both On|both"}}) {
    const ProviderSnapshot snapshot = reading(windows);
    const auto offered = availableTextScopes(&snapshot);
    const Scope shown = displayedTextScope(Scope::both, offered);
    const MenuBarTextPrefs effective = effectivePrefs(weekly, &snapshot);
    std::string text = names(availableMenuWindowKinds(snapshot));
    text.append("|").append(rawValue(normalizedMenuWindowKind(Kind::fiveHour, &snapshot)));
    text.append("|").append(rawValue(menuGaugeWindow(Kind::automatic, snapshot, weekly)));
    text.append("|").append(names(offered)).append("|").append(rawValue(shown));
    text.append(" ").append(textScopeTitle(shown, offered));
    EXPECT_EQ(text.append("|").append(rawValue(effective.percent)), expected);
    EXPECT_TRUE(effective.reset == Scope::off && effective.labels);
  }
}

TEST(MenuBarSlots, AnAbsentSnapshotKeepsChoices) {
  const MenuBarTextPrefs prefs{.percent = Scope::off, .reset = Scope::weekly};
  const auto offered = availableTextScopes(nullptr);
  EXPECT_EQ(effectivePrefs(prefs, nullptr), prefs);
  EXPECT_EQ(names(offered), "off both");
  EXPECT_EQ(textScopeTitle(Scope::off, offered), "Off");
  EXPECT_EQ(displayedTextScope(Scope::weekly, {}), Scope::weekly);
  EXPECT_EQ(displayedTextScope(Scope::off, std::array{Scope::both}), Scope::off);
  EXPECT_EQ(normalizedMenuWindowKind(Kind::weekly, nullptr), Kind::weekly);
  EXPECT_EQ(menuGaugeWindow(Kind::weekly, reading({five()}), prefs), Kind::weekly);
}

TEST(MenuBarSlots, TheOtherWindowIsResolvedWhenThereIsAUseForIt) {
  using Row = std::tuple<Windows, Kind, Scope, Scope, MenuBarStyle, std::optional<std::string>>;
  for (const auto& [windows, kind, percent, reset, style, inner] : std::vector<Row>{
           {{five(), week()}, Kind::fiveHour, Scope::off, Scope::off, rings, "Weekly"},
           {{five(), week()}, Kind::fiveHour, Scope::fiveHour, Scope::off, pills, {}},
           {{five(), week()}, Kind::fiveHour, Scope::both, Scope::off, pills, "Weekly"},
           {{five(), week()}, Kind::weekly, Scope::off, Scope::fiveHour, pills, "5h"},
           {{five(0), week()}, Kind::fiveHour, Scope::off, Scope::off, pills, "Weekly"},
           {{opus(), five(0)}, Kind::automatic, Scope::off, Scope::off, rings, "5h"},
           {{five(), opus()}, Kind::fiveHour, Scope::both, Scope::both, rings, {}},
           {{}, Kind::fiveHour, Scope::both, Scope::both, rings, {}}}) {
    const MenuGauge gauge =
        resolveMenuGauge(reading(windows), kind, {.percent = percent, .reset = reset}, style,
                         Accent::slate, RingColorMode::byUsage, now);
    EXPECT_EQ(gauge.inner ? gauge.inner->windowLabel : std::nullopt, inner)
        << rawValue(style) << " " << rawValue(percent) << " " << gauge.outer.tooltip;
    EXPECT_EQ(gauge.outer.bar.accent, Accent::slate);
  }
}

TEST(MenuBarSlots, WindowsAreTintedAndTheirColourNamed) {
  const auto tooltips = [](Windows windows, const Health& health) {
    const MenuGauge gauge = resolveMenuGauge(reading(std::move(windows), health), Kind::automatic,
                                             {}, rings, Accent::pink, RingColorMode::byWindow, now);
    return gauge.outer.tooltip + (gauge.inner ? "; " + gauge.inner->tooltip : "");
  };
  EXPECT_EQ(tooltips({five(), week()}, Health::ok()),
            "Claude: 5h 42% used, updated just now, teal; "
            "Claude: Weekly 13% used, updated just now, purple");
  EXPECT_EQ(tooltips({week()}, Health::stale("")), "Claude: Weekly 13% used, data just now, grey");
  EXPECT_EQ(tooltips({five()}, Health::turnedOff()), "Claude: usage reading is off");
  GaugeBar bar{.percent = 89.9, .mode = normal, .accent = Accent::teal};
  EXPECT_EQ(menuSlotColorWord(bar), "teal");
  bar.accent = slotAccent(RingColorMode::byWindow, Accent::pink, "Opus");
  EXPECT_EQ(menuSlotColorWord(bar), std::nullopt);
  bar.percent = 90;
  EXPECT_EQ(menuSlotColorWord(bar), "red");
}

TEST(MenuBarSlots, CountdownsTruncateAndSaturate) {
  const std::string ended = "window reset, no new reading yet";
  const test::FixedLocalTimeText localTime;
  using Row = std::tuple<double, std::optional<std::string>, std::string>;
  for (const auto& [seconds, token, text] :
       std::vector<Row>{{-infinity, {}, ended},
                        {0, {}, ended},
                        {nan, {}, ended},
                        {0.5, "1m", "resets in 1m"},
                        {119, "1m", "resets in 1m"},
                        {3599, "59m", "resets in 59m"},
                        {3600, "1h00m", "resets in 1h 0m"},
                        {7500, "2h05m", "resets in 2h 5m"},
                        {86399, "23h59m", "resets in 23h 59m"},
                        {86400, "1d00h", "resets Sat 13:13"},
                        {14399 * 60, "9d23h", "resets Mon 13:12"},
                        {14400 * 60, "10d", "resets Mon 13:13"},
                        {infinity, "2912280d", "resets Fri 23:59"}}) {
    EXPECT_EQ(menuResetToken(now + Seconds{seconds}, now), token) << seconds;
    EXPECT_EQ(windowResetText(now + Seconds{seconds}, now, localTime), text) << seconds;
  }
  EXPECT_EQ(menuResetToken({}, now), std::nullopt);
  EXPECT_EQ(windowResetText({}, now, localTime), std::nullopt);
}

TEST(MenuBarSlots, ShortAgesTruncateAndSaturate) {
  std::string ages;
  for (const double seconds :
       {nan, -5.0, 119.0, 3599.0, 3600.0, 86399.0, 86400.0, 8.64e6, infinity}) {
    ages += shortAge(seconds) + " ";
  }
  EXPECT_EQ(ages, "1m 1m 1m 59m 1h 23h 1d 99d 99d ");
}

TEST(MenuBarSlots, ASegmentPrintsWhatIsWanted) {
  // Percentages, resets, labels; what is drawn: label, token and reset of the outer, then of the
  // inner window.
  using Row = std::tuple<Scope, Scope, bool, MenuBarStyle, std::string>;
  for (const auto& [percent, reset, labels, style, drawn] :
       std::vector<Row>{{Scope::both, Scope::both, true, pills, "5h 42% 2h05m | wk 13% 1d01h"},
                        {Scope::both, Scope::off, false, rings, "- 42% - | - 13% -"},
                        {Scope::weekly, Scope::off, false, rings, "- - - | wk 13% -"},
                        {Scope::off, Scope::weekly, false, pills, "- - - | - - 1d01h"},
                        {Scope::fiveHour, Scope::off, true, rings, "5h 42% - | - - -"},
                        {Scope::off, Scope::off, true, rings, "- - - | - - -"}}) {
    const std::array gauges{resolveMenuGauge(reading({five(), week()}), Kind::fiveHour,
                                             {.percent = percent, .reset = reset, .labels = labels},
                                             style, Accent::automatic, RingColorMode::byUsage,
                                             now)};
    const MenuBarSegment s = menuBarSegments(gauges, style, now).at(0);
    const auto text = [](const std::optional<std::string>& value) { return value.value_or("-"); };
    EXPECT_EQ(text(s.label) + " " + text(s.token) + " " + text(s.reset) + " | " +
                  text(s.innerLabel) + " " + text(s.innerToken) + " " + text(s.innerReset),
              drawn);
    EXPECT_EQ(s.bar, gauges.front().outer.bar);
    EXPECT_EQ(s.inner.has_value() ? s.inner->percent : 0, 12.5);
  }
  // A slot without a window counts as the one whose text is wanted.
  const MenuGauge off =
      resolveMenuGauge(reading({}, Health::turnedOff()), Kind::weekly,
                       {.percent = Scope::weekly, .reset = Scope::both, .labels = true}, rings,
                       Accent::automatic, RingColorMode::byUsage, now);
  EXPECT_EQ(menuBarSegment(off, rings, now), (MenuBarSegment{.token = "\u2013"}));
}

TEST(MenuBarSlots, LinesTellTheResetsThatArePrinted) {
  const test::FixedLocalTimeText localTime;
  const auto lines = [&](Scope reset) {
    const MenuGauge gauge = resolveMenuGauge(reading({five(), week()}), Kind::fiveHour,
                                             {.percent = Scope::off, .reset = reset}, rings,
                                             Accent::automatic, RingColorMode::byUsage, now);
    return menuSegmentLines(gauge, menuBarSegment(gauge, rings, now), now, localTime);
  };
  EXPECT_THAT(lines(Scope::both).tooltip,
              ElementsAre("Claude: 5h 42% used, updated just now, resets in 2h 5m",
                          "Claude: Weekly 13% used, updated just now, resets Sat 14:13"));
  EXPECT_THAT(lines(Scope::weekly).spoken,
              ElementsAre("Claude 5h 42%, updated just now",
                          "Claude Weekly 13%, updated just now, resets Sat 14:13"));
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
