#include <sstream>

#include <gtest/gtest.h>

#include "Preferences.h"
#include "support/MemoryDefaults.h"

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
      << rawValue(p.ringColors());
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
  using Text = std::string;
  for (const auto& [mode, window, percent, in, slot, scope] :
       std::vector<std::tuple<Value, Value, Value, Text, MenuBarWindowKind, Scope>>{
           {Text("claude"), Text("weekly"), true, "100", weekly, Scope::weekly},
           {Text("codex"), Text("5h"), false, "010", automatic, Scope::off},
           {{}, false, Text("no"), "110", automatic, Scope::fiveHour}}) {  // a new user's
    MemoryDefaults defaults({{"claudeAuthorized", false},
                             {"menuBarMode", mode},
                             {"menuBarWindow", window},
                             {"showMenuBarPercent", percent}});
    const Preferences preferences(defaults);
    for (const ProviderID id : allProviders) {
      EXPECT_EQ(preferences.showsInMenuBar(id), in[static_cast<std::size_t>(id)] == '1');
      EXPECT_EQ(preferences.menuWindow(id), slot);
      EXPECT_EQ(preferences.textPrefs(id), (MenuBarTextPrefs{scope, Scope::off, false}));
    }
    EXPECT_FALSE(preferences.claudeTurnedOff()) << "the retired consent never turns Claude off";
    defaults.applies.clear();
    const Preferences again(defaults);
    EXPECT_TRUE(defaults.applies.empty()) << "the second start has nothing to migrate";
  }
}

TEST(PreferencesMigration, TextScopesFollowTheNewestChoice) {
  for (const auto& [current, older, slot, expected] :
       {std::tuple("weekly", "off", weekly, Scope::off),  // changed after a downgrade
        {"weekly", "gauge", fiveHour, Scope::weekly},
        {"", "gauge", weekly, Scope::weekly}}) {
    MemoryDefaults defaults({{"percentWindows.grok", std::string(current)},
                             {"resetWindows.grok", std::string(current)},
                             {"percentScope.grok", std::string(older)},
                             {"resetScope.grok", std::string(older)}});
    for (const MenuBarWindowKind window : {slot, fiveHour, weekly}) {  // the slot moves later
      EXPECT_EQ(loadTextScopes(defaults, grok, window), (TextScopes{expected, expected})) << older;
    }
  }
}

TEST(Preferences, UnusableValuesAreAbsentAndEachChangeIsStoredAtOnce) {
  MemoryDefaults defaults({{"perProviderMigrated", true}, {"providerOrder", false}});
  for (const char* key : {"visible.codex", "menubar.grok", "window.codex", "menuBarStyle"}) {
    defaults.set(key, std::string("true"));
  }
  Preferences preferences(defaults);
  EXPECT_EQ(choices(preferences),
            "00 rings byUsage, claude 11 auto auto fiveHour off, "
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
    preferences.moveProvider(codex, true);
    EXPECT_EQ(told, 10) << "a value that stays is no change";
  }
  EXPECT_EQ(defaults.text("percentScope.claude"), "gauge") << "for an older release to read";
  EXPECT_EQ(choices(Preferences(defaults)),
            "10 pills byWindow, codex 11 weekly auto fiveHour both,"
            " claude 11 auto slate weekly off, grok 01 auto auto fiveHour off");
}

}  // namespace
}  // namespace marigold
