#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Preferences.h"
#include "support/DefaultsContract.h"
#include "support/MemoryDefaults.h"

namespace marigold {
namespace {

using test::MemoryDefaults;
using testing::Contains;
using testing::ElementsAre;
using enum ProviderID;
using Scope = MenuBarTextScope;

TEST(MemoryDefaults, KeepsTheContract) {
  MemoryDefaults defaults;
  test::expectDefaultsContract(defaults);
}

TEST(ProviderOrderText, IsReadWhateverItHolds) {
  struct Case {
    std::optional<std::string_view> text;
    ProviderOrder order;
  };
  for (const Case& c :
       {Case{std::nullopt, {claude, codex, grok}}, Case{"", {claude, codex, grok}},
        Case{"grok,grok,claude", {grok, claude, codex}}, Case{"x,,codex", {codex, claude, grok}},
        Case{",,codex,", {codex, claude, grok}}, Case{"Grok, grok", {claude, codex, grok}},
        Case{"codex,grok,claude", {codex, grok, claude}}}) {
    EXPECT_EQ(decodeProviderOrder(c.text), c.order) << c.text.value_or("absent");
    EXPECT_EQ(decodeProviderOrder(encodeProviderOrder(c.order)), c.order);
  }
  EXPECT_EQ(encodeProviderOrder({grok, claude}), "grok,claude");
}

TEST(ProviderOrderText, MovingStopsAtTheEnds) {
  const ProviderOrder order{claude, codex, grok};
  EXPECT_THAT(moveInOrder(order, codex, true), ElementsAre(codex, claude, grok));
  EXPECT_THAT(moveInOrder(order, codex, false), ElementsAre(claude, grok, codex));
  EXPECT_EQ(moveInOrder(order, claude, true), order);
  EXPECT_EQ(moveInOrder(order, grok, false), order);
  EXPECT_THAT(moveInOrder({claude}, grok, true), ElementsAre(claude));
}

TEST(PreferencesMigration, ANewUserStartsWithTheFiveHourPercentageOfClaudeAndCodex) {
  MemoryDefaults defaults({{"claudeAuthorized", false}});
  const Preferences preferences(defaults);
  const auto inMenuBar = [&](ProviderID p) { return preferences.showsInMenuBarEffective(p); };
  EXPECT_THAT(menuBarProviders(preferences.providerOrder(), inMenuBar), ElementsAre(claude, codex));
  for (const ProviderID provider : allProviders) {
    EXPECT_EQ(preferences.menuWindow(provider), MenuBarWindowKind::automatic);
    EXPECT_EQ(preferences.textPrefs(provider),
              (MenuBarTextPrefs{.percent = Scope::fiveHour, .reset = Scope::off, .labels = false}));
  }
  EXPECT_FALSE(preferences.claudeTurnedOff()) << "the retired consent never turns Claude off";
  EXPECT_EQ(defaults.value("claudeAuthorized"), DefaultsValue());
  EXPECT_EQ(defaults.text("percentWindows.claude"), "fiveHour");
  EXPECT_EQ(defaults.text("percentScope.claude"), "gauge") << "for an older release to read";

  ASSERT_GE(defaults.applies.size(), 3U);
  EXPECT_THAT(defaults.applies[0], Contains(DefaultsChange("perProviderMigrated", true)));
  EXPECT_THAT(defaults.applies[0], Contains(DefaultsChange("menubar.grok", false)));
  EXPECT_THAT(defaults.applies[1], Contains(DefaultsChange("perProviderPercentMigrated", true)));
  EXPECT_THAT(defaults.applies[1], Contains(DefaultsChange("showPercent.claude", true)));
  EXPECT_THAT(defaults.applies[2], Contains(DefaultsChange("claudeConsentRetired", true)));
  defaults.applies.clear();
  const Preferences again(defaults);
  EXPECT_TRUE(defaults.applies.empty()) << "the second start has nothing to migrate";
}

TEST(PreferencesMigration, FormerGlobalSettingsBecomeEveryProvidersOwn) {
  struct Case {
    DefaultsValue mode, window, percent;
    bool claudeIn, codexIn;
    MenuBarWindowKind slotWindow;
    Scope scope;
  };
  const auto text = [](const char* value) { return DefaultsValue(std::string(value)); };
  using enum MenuBarWindowKind;
  for (const Case& c :
       {Case{text("claude"), text("weekly"), true, true, false, weekly, Scope::weekly},
        Case{text("codex"), text("5h"), {}, false, true, automatic, Scope::fiveHour},
        Case{text("both"), {}, false, true, true, automatic, Scope::off},
        Case{true, false, text("no"), true, true, automatic, Scope::fiveHour}}) {
    MemoryDefaults defaults(
        {{"menuBarMode", c.mode}, {"menuBarWindow", c.window}, {"showMenuBarPercent", c.percent}});
    const Preferences preferences(defaults);
    EXPECT_EQ(preferences.showsInMenuBar(claude), c.claudeIn);
    EXPECT_EQ(preferences.showsInMenuBar(codex), c.codexIn);
    EXPECT_FALSE(preferences.showsInMenuBar(grok));
    for (const ProviderID provider : allProviders) {
      EXPECT_EQ(preferences.menuWindow(provider), c.slotWindow);
      EXPECT_EQ(preferences.percentScope(provider), c.scope);
      EXPECT_EQ(preferences.resetScope(provider), Scope::off);
    }
  }
}

TEST(PreferencesMigration, TextScopesFollowTheNewestChoice) {
  struct Case {
    const char* current = "";  // absent
    const char* older = "";
    std::optional<bool> legacySwitch;
    MenuBarWindowKind window = MenuBarWindowKind::automatic;
    Scope percent = Scope::off;
    Scope reset = Scope::off;
  };
  using enum MenuBarWindowKind;
  const auto stored = [](std::string_view text) {
    return text.empty() ? DefaultsValue() : DefaultsValue(std::string(text));
  };
  for (const Case& c :
       {Case{"", "", {}, weekly, Scope::fiveHour, Scope::off},
        Case{"", "gauge", false, weekly, Scope::weekly, Scope::weekly},
        Case{"", "gauge", {}, automatic, Scope::fiveHour, Scope::fiveHour},
        Case{"", "both", {}, weekly, Scope::both, Scope::both},
        Case{"", "off", true, weekly, Scope::off, Scope::off},
        Case{"", "", true, weekly, Scope::weekly, Scope::off},
        Case{"", "", true, automatic, Scope::fiveHour, Scope::off},
        Case{"", "", false, weekly, Scope::off, Scope::off},
        Case{"", "unknown", true, automatic, Scope::fiveHour, Scope::off},
        Case{"weekly", "", false, fiveHour, Scope::weekly, Scope::weekly},
        Case{"weekly", "gauge", false, fiveHour, Scope::weekly, Scope::weekly},
        Case{"weekly", "off", true, weekly, Scope::off, Scope::off},  // changed after a downgrade
        Case{"both", "gauge", {}, fiveHour, Scope::fiveHour, Scope::fiveHour},
        Case{"gauge", "both", {}, fiveHour, Scope::both, Scope::both}}) {
    MemoryDefaults defaults({{"percentWindows.grok", stored(c.current)},
                             {"resetWindows.grok", stored(c.current)},
                             {"percentScope.grok", stored(c.older)},
                             {"resetScope.grok", stored(c.older)}});
    if (c.legacySwitch) {
      defaults.set("showPercent.grok", *c.legacySwitch);
    }
    const TextScopes expected{.percent = c.percent, .reset = c.reset};
    for (const MenuBarWindowKind window : {c.window, fiveHour, weekly}) {  // the slot moves later
      EXPECT_EQ(loadTextScopes(defaults, grok, window), expected) << c.current << "/" << c.older;
    }
  }
}

TEST(Preferences, UnusableValuesAreAbsent) {
  MemoryDefaults defaults({{"perProviderMigrated", true}, {"providerOrder", false}});
  for (const char* key : {"visible.codex", "menubar.grok", "window.codex", "accent.codex",
                          "menuBarLabels", "menuBarStyle", "ringColors", "claudeTurnedOff"}) {
    defaults.set(key, std::string("true"));
  }
  const Preferences preferences(defaults);
  EXPECT_TRUE(preferences.isVisible(codex));
  EXPECT_TRUE(preferences.showsInMenuBar(codex)) << "absent is in";
  EXPECT_FALSE(preferences.showsInMenuBar(grok)) << "but out for Grok";
  EXPECT_EQ(preferences.menuWindow(codex), MenuBarWindowKind::automatic);
  EXPECT_EQ(preferences.accent(codex), ProviderAccent::automatic);
  EXPECT_THAT(preferences.providerOrder(), ElementsAre(claude, codex, grok));
  EXPECT_FALSE(preferences.menuBarLabels());
  EXPECT_EQ(preferences.menuBarStyle(), MenuBarStyle::rings);
  EXPECT_EQ(preferences.ringColors(), RingColorMode::byUsage);
  EXPECT_FALSE(preferences.claudeTurnedOff());
}

TEST(Preferences, EachChangeIsStoredAtOnceAndToldOnce) {
  MemoryDefaults defaults;
  Preferences preferences(defaults);
  int told = 0;
  preferences.onChange = [&] { ++told; };
  preferences.setVisible(codex, true);
  EXPECT_EQ(defaults.flag("visible.codex"), true) << "a default that was picked stays picked";
  EXPECT_EQ(told, 0) << "but is no change";

  const auto changeAll = [&] {
    preferences.setVisible(grok, false);
    preferences.setShowsInMenuBar(grok, true);
    preferences.setMenuWindow(codex, MenuBarWindowKind::weekly);
    preferences.setAccent(claude, ProviderAccent::slate);
    preferences.setPercentScope(claude, Scope::weekly);
    preferences.setPercentScope(grok, Scope::off);
    preferences.setResetScope(codex, Scope::both);
    preferences.setMenuBarLabels(true);
    preferences.setMenuBarStyle(MenuBarStyle::pills);
    preferences.setRingColors(RingColorMode::byWindow);
    preferences.setClaudeTurnedOff(true);
    preferences.moveProvider(codex, true);
  };
  defaults.applies.clear();
  changeAll();
  EXPECT_EQ(told, 12);
  EXPECT_EQ(defaults.applies.size(), 12U) << "what belongs together is stored together";
  changeAll();
  EXPECT_EQ(told, 12) << "the same values are no change, nor is a move at the end";

  EXPECT_EQ(defaults.text("percentWindows.claude"), "weekly");
  EXPECT_EQ(defaults.text("percentScope.claude"), "gauge");
  EXPECT_EQ(defaults.flag("showPercent.claude"), true);
  EXPECT_EQ(defaults.flag("showPercent.grok"), false);
  EXPECT_EQ(defaults.text("resetWindows.codex"), "both");
  EXPECT_EQ(defaults.text("resetScope.codex"), "both");
  const Preferences reloaded(defaults);
  EXPECT_THAT(reloaded.providerOrder(), ElementsAre(codex, claude, grok));
  EXPECT_TRUE(reloaded.showsInMenuBar(grok));
  EXPECT_FALSE(reloaded.showsInMenuBarEffective(grok)) << "chosen, but hidden";
  EXPECT_EQ(reloaded.menuWindow(codex), MenuBarWindowKind::weekly);
  EXPECT_EQ(reloaded.accent(claude), ProviderAccent::slate);
  EXPECT_EQ(reloaded.textPrefs(claude),
            (MenuBarTextPrefs{.percent = Scope::weekly, .reset = Scope::off, .labels = true}));
  EXPECT_EQ(reloaded.percentScope(grok), Scope::off);
  EXPECT_EQ(reloaded.resetScope(codex), Scope::both);
  EXPECT_EQ(reloaded.menuBarStyle(), MenuBarStyle::pills);
  EXPECT_EQ(reloaded.ringColors(), RingColorMode::byWindow);
  EXPECT_TRUE(reloaded.claudeTurnedOff());
}

}  // namespace
}  // namespace marigold
