#include <regex>

#include <gmock/gmock.h>

#include "app/CommandLine.h"
#include "app/PopoverShot.h"
#include "app/TextForm.h"
#include "popover/AboutText.h"
#include "support/PopoverText.h"

namespace marigold {
namespace {

using Mode = Command::Mode;

TEST(CommandLine, TheFirstFlagOfTheTableWins) {
  struct Row {
    std::vector<std::string> arguments;
    Mode mode;
    std::string path;
    bool dark = false;
  };
  for (const Row& row :
       {Row{{}, Mode::application, ""}, Row{{"--selftests", "x"}, Mode::application, ""},
        Row{{"x", "--selftest"}, Mode::selfTest, ""},
        Row{{"--dump-codex", "--selftest"}, Mode::selfTest, ""},
        Row{{"--shot"}, Mode::application, ""},
        Row{{"--shot-off", "a", "--shot"}, Mode::shotOff, "a"},
        Row{{"--shot-off", "a", "--shot", "b"}, Mode::shot, "b"},
        Row{{"--shot", "--dump-codex"}, Mode::dumpCodex, ""},
        Row{{"--shot", "--shot-held"}, Mode::shot, "--shot-held"},
        Row{{"--shot-settings", "a"}, Mode::shotSettings, "a"},
        Row{{"--shot-reconnect", "a"}, Mode::shotReconnect, "a"},
        Row{{"--shot-held", "dark", "light"}, Mode::shotHeld, "dark"},
        Row{{"--shot-off", "a", "dark"}, Mode::shotOff, "a", true},
        Row{{"--help", "--shot-menubar", "m.png"}, Mode::shotMenuBar, "m.png"},
        Row{{"--version", "--help"}, Mode::help, ""},
        Row{{"--help", "--quit", "--open"}, Mode::open, ""},
        Row{{"--version", "--quit"}, Mode::quit, ""},
        Row{{"--shot", "--version"}, Mode::shot, "--version"}}) {
    const Command command = parseCommandLine(row.arguments);
    EXPECT_EQ(command.mode, row.mode) << testing::PrintToString(row.arguments);
    EXPECT_EQ(command.path, row.path);
    EXPECT_EQ(command.scheme == MarigoldTheme::Scheme::dark, row.dark);
  }
}

TEST(CommandLine, TheStatusHasFormsAndMayBeFollowed) {
  struct Row {
    std::vector<std::string> arguments;
    StatusForm form;
    bool follows;
  };
  for (const Row& row : {Row{{"--status"}, StatusForm::lines, false},
                         Row{{"--status", "--short", "--follow"}, StatusForm::shortLine, true},
                         Row{{"--json"}, StatusForm::json, false},
                         Row{{"--follow", "--short", "--json"}, StatusForm::json, true}}) {
    const Command command = parseCommandLine(row.arguments);
    EXPECT_EQ(command.mode, Command::Mode::status) << testing::PrintToString(row.arguments);
    EXPECT_EQ(command.form, row.form);
    EXPECT_EQ(command.follows, row.follows);
  }
}

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

TEST(TextFormTest, TellsEachChangeOnceAndNoAges) {
  std::vector<std::string> printed;
  TextStatusBar bar([&](std::string text) { printed.push_back(std::move(text)); });
  const auto item = bar.makeItem();
  StatusItemContent content{.label = "37%",
                            .tooltip = "Codex: 5h 37% used, updated just now\nCodex: Weekly",
                            .tooltipWithoutAges = "Codex: 5h 37% used, updated \nCodex: Weekly"};
  item->show(content);
  content.tooltip = "Codex: 5h 37% used, updated 2m ago\nCodex: Weekly";
  item->show(content);
  content.label = "38%";
  item->show(content);
  const std::vector<std::string> expected{
      "Codex: 5h 37% used, updated just now\nCodex: Weekly\nmark: 37%\n",
      "Codex: 5h 37% used, updated 2m ago\nCodex: Weekly\nmark: 38%\n"};
  EXPECT_EQ(printed, expected);
  EXPECT_EQ(textForm({.label = "\x1b[2J", .tooltip = "Claude: \u202e 1%\nGrok"}),
            "Claude: ? 1%\nGrok\nmark: ?[2J\n");
}

}  // namespace
}  // namespace marigold
