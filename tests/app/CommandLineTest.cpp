#include <vector>

#include <gtest/gtest.h>

#include "app/CommandLine.h"

namespace marigold {
namespace {

TEST(CommandLine, TheFirstFlagOfTheTableWins) {
  using Mode = Command::Mode;
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

}  // namespace
}  // namespace marigold
