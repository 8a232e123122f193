#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/BoundedFile.h"
#include "model/Preferences.h"
#include "support/SimplePorts.h"

namespace marigold {
namespace {

using test::MemoryDefaults;
using enum ProviderID;
using enum MenuBarWindowKind;
using Scope = MenuBarTextScope;

// Every choice in one text, flags as digits.
std::string choices(const Preferences& p) {
  std::ostringstream out;
  out << p.menuBarLabels() << p.claudeTurnedOff() << ' ' << rawValue(p.menuBarStyle()) << ' '
      << rawValue(p.ringColors()) << ' ' << rawValue(p.barColors());
  for (const ProviderID id : p.providerOrder()) {
    out << ", " << rawValue(id) << ' ' << p.isVisible(id) << p.showsInMenuBar(id) << ' '
        << rawValue(p.menuWindow(id)) << ' ' << rawValue(p.accent(id)) << ' '
        << rawValue(p.percentScope(id)) << ' ' << rawValue(p.resetScope(id));
  }
  return out.str();
}

TEST(ProviderOrder, IsReadWhateverItHoldsAndMovesStopAtTheEnds) {
  for (const auto& [text, order] : {std::pair("grok,grok,claude", "grok,claude,codex"),
                                    {",x,,codex,", "codex,claude,grok"},
                                    {"Grok, grok", "claude,codex,grok"}}) {
    EXPECT_EQ(encodeProviderOrder(decodeProviderOrder(text)), order) << text;
  }
  EXPECT_EQ(moveInOrder({claude, codex}, claude, false), (ProviderOrder{codex, claude}));
  EXPECT_EQ(moveInOrder({claude, codex}, codex, false), (ProviderOrder{claude, codex}));
}

TEST(PreferencesMigration, FormerSettingsBecomeEveryProvidersOwnOnce) {
  using Value = DefaultsValue;
  for (const auto& [mode, window, percent, in, slot, scope] :
       std::vector<std::tuple<Value, Value, Value, std::string, MenuBarWindowKind, Scope>>{
           {"claude", "weekly", true, "100", weekly, Scope::weekly},
           {"codex", "5h", false, "010", automatic, Scope::off},
           {{}, false, "no", "110", automatic, Scope::fiveHour}}) {  // a new user's
    MemoryDefaults defaults({{"claudeAuthorized", false},
                             {"menuBarMode", mode},
                             {"menuBarWindow", window},
                             {"showMenuBarPercent", percent}});
    const Preferences preferences(defaults);
    for (const ProviderID id : allCases<ProviderID>) {
      EXPECT_EQ(preferences.showsInMenuBar(id), in[static_cast<std::size_t>(id)] == '1');
      EXPECT_EQ(preferences.menuWindow(id), slot);
      EXPECT_EQ(preferences.textPrefs(id), (MenuBarTextPrefs{scope, Scope::off, false}));
    }
    EXPECT_FALSE(preferences.claudeTurnedOff()) << "the retired consent never turns Claude off";
    EXPECT_EQ(defaults.value("claudeAuthorized"), Value());
    defaults.applies = 0;
    const Preferences again(defaults);
    EXPECT_EQ(defaults.applies, 0) << "the second start has nothing to migrate";
  }
}

TEST(PreferencesMigration, TextScopesFollowTheNewestChoice) {
  struct Row {
    DefaultsValue current, older, settled, legacySwitch;
    MenuBarWindowKind slot;
    Scope percent, reset;
  };
  for (const auto& row :
       {Row{{}, "gauge", {}, false, weekly, Scope::weekly, Scope::weekly},
        {{}, "gauge", {}, {}, automatic, Scope::fiveHour, Scope::fiveHour},
        {{}, "both", {}, false, weekly, Scope::both, Scope::both},
        {{}, "Gauge", {}, true, weekly, Scope::weekly, Scope::off},
        {{}, {}, {}, false, automatic, Scope::off, Scope::off},
        {"Weekly", "off", "both", true, weekly, Scope::off, Scope::off},
        {"weekly", {}, {}, false, fiveHour, Scope::weekly, Scope::weekly},
        {"weekly", "gauge", {}, {}, fiveHour, Scope::weekly, Scope::weekly},
        {"weekly", "off", {}, {}, weekly, Scope::off, Scope::off},  // changed after a downgrade
        {"weekly", "both", "weekly", {}, weekly, Scope::both, Scope::both},
        {"both", "gauge", "weekly", {}, weekly, Scope::both, Scope::both}}) {  // edited by hand
    MemoryDefaults defaults({{"showPercent.grok", row.legacySwitch}});
    for (const std::string text : {"percent", "reset"}) {
      defaults.apply({{text + "Windows.grok", row.current},
                      {text + "Scope.grok", row.older},
                      {text + "WindowsSettled.grok", row.settled}});
    }
    for (const MenuBarWindowKind window : {row.slot, fiveHour, weekly}) {  // the slot moves later
      EXPECT_EQ(loadTextScopes(defaults, grok, window), (TextScopes{row.percent, row.reset}))
          << testing::PrintToString(row.current) << testing::PrintToString(row.older);
    }
  }
  EXPECT_TRUE((MenuBarTextPrefs{Scope::off, Scope::both}.covers("Opus")));
  EXPECT_TRUE(covers(Scope::weekly, {}) && !covers(Scope::weekly, "5h") && !covers(Scope::off, {}));
}

TEST(Preferences, UnusableValuesAreAbsentAndEachChangeIsStoredAtOnce) {
  MemoryDefaults defaults({{"perProviderMigrated", true}, {"providerOrder", false}});
  for (const char* key : {"visible.codex", "menubar.grok", "window.codex", "menuBarStyle"}) {
    defaults.set(key, "true");
  }
  Preferences preferences(defaults);
  EXPECT_EQ(choices(preferences),
            "00 rings byUsage auto, claude 11 auto auto fiveHour off, "
            "codex 11 auto auto fiveHour off, grok 10 auto auto fiveHour off");
  int told = 0;
  preferences.onChange = [&] { ++told; };
  for (int round = 0; round < 2; ++round) {
    preferences.setVisible(grok, false);
    preferences.setShowsInMenuBar(grok, true);
    preferences.setMenuWindow(codex, weekly);
    preferences.setAccent(claude, ProviderAccent::slate);
    preferences.setPercentScope(claude, Scope::weekly);
    preferences.setResetScope(codex, Scope::both);
    preferences.setMenuBarLabels(true);
    preferences.setMenuBarStyle(MenuBarStyle::pills);
    preferences.setRingColors(RingColorMode::byWindow);
    preferences.setBarColors(BarColors::light);
    preferences.moveProvider(codex, true);
    EXPECT_EQ(told, 11) << "a value that stays is no change";
  }
  EXPECT_FALSE(preferences.showsInMenuBarEffective(grok)) << "chosen, but not visible";
  EXPECT_EQ(defaults.text("percentScope.claude"), "gauge") << "for an older release to read";
  EXPECT_EQ(defaults.flag("showPercent.claude"), true) << "the same";
  EXPECT_EQ(choices(Preferences(defaults)),
            "10 pills byWindow light, codex 11 weekly auto fiveHour both,"
            " claude 11 auto slate weekly off, grok 01 auto auto fiveHour off");
}

TEST(Preferences, WhatOthersStoreIsTakenOver) {
  MemoryDefaults defaults({{"percentWindows.codex", "fiveHour"}, {"percentScope.codex", "gauge"}});
  Preferences preferences(defaults);
  std::string told;
  preferences.onChange = [&] { told += 'c'; };
  preferences.onClaudeSwitched = [&] { told += preferences.claudeTurnedOff() ? "off " : "on "; };
  const std::string before = choices(preferences);
  using Row = std::pair<DefaultsChange, std::string>;
  for (const auto& [change, expected] :
       {Row{{"claudeTurnedOff", true}, "off c"}, Row{{"claudeTurnedOff", {}}, "on c"},
        Row{{"unknown", true}, ""}, Row{{"accent.grok", "pink"}, "c"},
        Row{{"accent.grok", "no color"}, "c"}, Row{{"percentWindows.codex", "both"}, "c"},
        Row{{"percentScope.codex", "gauge"}, "c"}, Row{{"providerOrder", "grok"}, "c"},
        Row{{"providerOrder", {}}, "c"}}) {
    told.clear();
    defaults.changeByOthers({change});
    EXPECT_EQ(told, expected) << change.first;
  }
  EXPECT_EQ(choices(preferences), before);
}

TEST(Preferences, TheReadmeTellsEveryKeyAndValue) {
  const std::string readme = readWholeFile(MARIGOLD_README, 1 << 20).value();
  // The first cells of a choice's row: its key and, of a choice among cases, its values.
  const auto expectRow = [&]<class T>(std::string_view key, const T& /*value*/) {
    std::string row = "| `";
    row.append(key).append("` | `");
    if constexpr (Tabled<T>) {
      for (const T one : allCases<T>) {
        row.append(one == allCases<T>.front() ? "\"" : ", `\"").append(rawValue(one)).append("\"`");
      }
    }
    EXPECT_THAT(readme, testing::HasSubstr(row));
  };
  expectRow(percentWindowsKey(codex), Scope());
  expectRow(resetWindowsKey(codex), Scope());
  std::apply([&](auto... row) { (expectRow(row.key, Choices().*row.held), ...); },
             applicationPreferences);
  std::apply([&](auto... row) { (expectRow(row.key(codex), ProviderChoices().*row.held), ...); },
             providerPreferences);
}

}  // namespace
}  // namespace marigold
