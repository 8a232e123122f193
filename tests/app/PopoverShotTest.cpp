#include <regex>

#include <gmock/gmock.h>

#include "app/PopoverShot.h"
#include "popover/AboutText.h"
#include "support/PopoverText.h"

namespace marigold {
namespace {

using Mode = Command::Mode;

TEST(PopoverShot, EachPictureShowsItsCase) {
  for (const auto& [mode, claude, grok] : std::vector<std::tuple<Mode, const char*, const char*>>{
           {Mode::shot, "Claude, Claude Max\n5h 42% solid in 2h 6m\nWeekly 74% solid Mon 3:00 PM\n",
            "Grok, X Premium\nWeekly 15% solid Sun 5:42 AM"},
           {Mode::shotSettings, "Claude, Claude Max\n5h 42% solid", "Grok, X"},
           {Mode::shotOff, "Claude [off]\n(Turn On)", "Grok, X"},
           {Mode::shotReconnect, "Claude, Claude Max [retrying!]\n= Last reading before this\n5h",
            "Grok, X Premium\n- No active limits right now."},
           {Mode::shotHeld, "Claude, Claude Max [needs a tap!]\nReading your Claude login file did",
            "Grok\nGrok not detected\n- Looks in ~/.grok/logs"}}) {
    const PopoverContent shot = popoverShot(mode, {}, linuxTexts, mode == Mode::shotHeld);
    EXPECT_EQ(shot.page, mode == Mode::shotSettings ? PopoverContent::Page::settings
                                                    : PopoverContent::Page::cards);
    ASSERT_EQ(shot.cards.size(), 3U);
    EXPECT_THAT(test::told(shot.cards[0]), testing::StartsWith(claude));
    EXPECT_THAT(test::told(shot.cards[2]), testing::StartsWith(grok));
    EXPECT_EQ(test::row(shot.settings, "barColors") != nullptr, mode == Mode::shotHeld);
    test::row(shot.settings, "claude.window")->use(1);  // does nothing
  }
}

TEST(PopoverShot, EveryTextIsTheDesktopsOwn) {
  const DesktopTexts other = [](std::string_view text) {
    return text.empty() ? text : std::string_view("x");
  };
  const auto menu = worded({{.title = "a", .items = {{.title = "b"}}}}, other);
  EXPECT_EQ(menu[0].title + menu[0].items[0].title, "xx");
  const AboutPanel about = worded(aboutPanel(), other);
  EXPECT_EQ(about.title + about.credits, "xx");
  const PopoverContent shot = popoverShot(Mode::shotHeld, {}, other, true);
  EXPECT_EQ(shot.header, (PopoverHeader{"x", "x", "x", "x"}));
  EXPECT_EQ(shot.settings.title, "x");
  EXPECT_THAT(test::told(shot.cards[0]),
              testing::AllOf(testing::StartsWith("Claude, Claude Max [x!]\nx\n(x)\n--- = x"
                                                 "\nx 42% dim in 2h 6m\n"),
                             testing::EndsWith("\n> x")));
  const std::regex noWord(R"([\w.]+:|\b(on|off)\b|\W)");  // keys, states and marks
  EXPECT_THAT(std::regex_replace(test::told(shot.settings), noWord, ""),
              testing::MatchesRegex("x+"));
}

}  // namespace
}  // namespace marigold
