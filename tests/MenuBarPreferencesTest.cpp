#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "MenuBarPreferences.h"

namespace marigold {
namespace {

using Kind = MenuBarWindowKind;
using enum MenuBarTextScope;

TEST(MenuBarPreferences, StoredScopesMigrateAndCoverTheirWindow) {
  using Text = std::optional<std::string_view>;
  for (const auto& [stored, legacy, window, expected] :
       std::vector<std::tuple<Text, std::optional<bool>, Kind, MenuBarTextScope>>{
           {"gauge", false, Kind::weekly, weekly},
           {"gauge", {}, Kind::automatic, fiveHour},
           {"off", true, Kind::automatic, off},
           {"Gauge", true, Kind::weekly, weekly},
           {{}, false, Kind::automatic, off},
           {"", {}, Kind::automatic, both}}) {
    EXPECT_EQ(migratedTextScope(stored, legacy, window, both), expected) << stored.value_or("-");
  }
  EXPECT_TRUE(covers(weekly, {}) && !covers(weekly, "5h") && !covers(off, {}));
}

}  // namespace
}  // namespace marigold
