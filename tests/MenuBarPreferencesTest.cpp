#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "MenuBarPreferences.h"

namespace marigold {
namespace {

using Kind = MenuBarWindowKind;
using enum MenuBarTextScope;

TEST(MenuBarPreferences, ScopesCoverWindows) {
  for (const auto& [scope, expected] : std::vector<std::pair<MenuBarTextScope, std::string>>{
           {off, "0000"}, {fiveHour, "1100"}, {weekly, "1010"}, {both, "1111"}}) {
    std::string covered;
    std::string coveredByEither;
    for (const std::optional<std::string_view> label :
         std::vector<std::optional<std::string_view>>{{}, "5h", "Weekly", "Opus"}) {
      covered += covers(scope, label) ? '1' : '0';
      const bool either = MenuBarTextPrefs{.percent = scope, .reset = off}.covers(label) &&
                          MenuBarTextPrefs{.percent = off, .reset = scope}.covers(label);
      coveredByEither += either ? '1' : '0';
    }
    EXPECT_EQ(covered, expected);
    EXPECT_EQ(coveredByEither, expected);
  }
}

TEST(MenuBarPreferences, OlderTextChoicesMigrate) {
  using Row =
      std::tuple<std::optional<std::string_view>, std::optional<bool>, Kind, MenuBarTextScope>;
  for (const auto& [stored, legacy, window, expected] :
       std::vector<Row>{{"gauge", false, Kind::weekly, weekly},
                        {"gauge", {}, Kind::automatic, fiveHour},
                        {"both", false, Kind::automatic, both},
                        {"off", true, Kind::automatic, off},
                        {"fiveHour", {}, Kind::weekly, fiveHour},
                        {"Gauge", true, Kind::weekly, weekly},
                        {{}, true, Kind::automatic, fiveHour},
                        {{}, false, Kind::automatic, off},
                        {"", {}, Kind::automatic, both}}) {
    EXPECT_EQ(migratedTextScope(stored, legacy, window, both), expected)
        << stored.value_or("nothing");
  }
}

}  // namespace
}  // namespace marigold
