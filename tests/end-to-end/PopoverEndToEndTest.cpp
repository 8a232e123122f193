// The built program's popover as assistive technology is told of it and uses it.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/Time.h"
#include "end-to-end/ProgramFixture.h"
#include "support/PrivateBus.h"
#include "support/Spoken.h"
#include "support/TrayHost.h"

namespace marigold {
namespace {

using test::eventually;

class PopoverEndToEnd : public test::ProgramFixture {
 protected:
  PopoverEndToEnd() {
    environment["DISPLAY"] = ":" + xserver_.outputLine("").value_or("");
    environment["DBUS_SESSION_BUS_ADDRESS"] = bus_.address;
    environment["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1";
    spoken_.emplace(bus_, environment);
  }

  // Whether what the popover tells comes to hold `part`, or to lack it; times are left out.
  bool tells(const std::string& part, bool told = true) {
    static const std::regex times(", resets [^;]*");
    return eventually([&] {
      text = std::regex_replace(spoken_->tree().text(), times, "");
      return (text.find(part) != std::string::npos) == told;
    });
  }
  // Uses the last object of this name, or what is in it, as assistive technology does.
  void use(const std::string& name) {
    ASSERT_TRUE(eventually([&] {
      const test::Spoken all = spoken_->tree();
      const test::Spoken* const found = all.find(name);
      return found != nullptr &&
             spoken_->use(found->children.empty() ? *found : found->children[0]);
    })) << name;
  }
  void press(const std::vector<std::string>& keys) const {
    std::vector<std::string> words{MARIGOLD_XDOTOOL, "key"};
    words.insert(words.end(), keys.begin(), keys.end());
    EXPECT_EQ(run(words).finish().second, 0);
  }
  [[nodiscard]] std::string stored() const {
    std::ifstream file(preferences);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  // Else it would begin anew, and end its clients, whenever the last one has left.
  test::ChildProcess xserver_{{MARIGOLD_XVFB, "-noreset", "-displayfd", "1", "-nolisten", "tcp"}};
  test::PrivateBus bus_{home};
  std::optional<test::SpokenBus> spoken_;

 protected:
  test::TrayHost host{QString::fromStdString(bus_.address), "popover-host"};
  const std::string preferences = home.path() + "/.config/app.marigold.Marigold/preferences.json";
  std::string text;  // what the popover told last
};

TEST_F(PopoverEndToEnd, SpeaksAndIsUsedBySpeech) {
  test::ChildProcess program = start();
  ASSERT_TRUE(eventually([this] { return !host.item.isEmpty(); })) << program.end();
  host.askItem("Activate", {780, 10});
  const std::string head =
      "(dialog Marigold!(push button Refresh Now;push button Settings;"
      "panel Claude(label Claude Code not detected;label Looks in ~/.claude/.credentials.json;"
      "push button What Marigold does with your Claude login+;);panel Codex(";
  const std::string noGrok = "panel Grok(label Grok not detected;label Looks in ~/.grok/logs;););)";
  EXPECT_TRUE(tells(head + "label Codex not detected;label Looks in ~/codex/sessions;);" + noGrok))
      << text;
  codexSays(37, 12);
  const std::string codex =
      "label Codex Plus;label 5h, 37 percent used;label Weekly, 12 percent used;);";
  EXPECT_TRUE(tells(head + codex + noGrok)) << text;
  test::append(home.path() + "/.grok/logs/unified.jsonl",
               R"({"ts":")" + isoText(std::chrono::system_clock::now()) +
                   R"(","msg":"billing: fetched credits config","ctx":{"config":)"
                   R"({"creditUsagePercent":50},"subscriptionTier":"X"}})" +
                   "\n");
  EXPECT_TRUE(tells(head + codex + "panel Grok(label Grok X;label Weekly, 50 percent used;););)"))
      << text;

  use("Settings");
  EXPECT_TRUE(tells("push button Claude: details-;check box Claude*")) << text;
  use("Grok: details");
  struct Row {
    const char* used = "";
    const char* told = "";
    const char* stored = "";
    const char* label = "wk 50% | 5h 37%";
    bool redraws = true;
    std::vector<std::string> keys;
  };
  for (const Row& row : std::vector<Row>{
           {"Show in menu bar", "menu bar*", R"("menubar.grok":true)", "37% | 50%"},
           {"Move up", "push button Codex: details+;check box Codex*;);panel Menu bar(",
            R"("providerOrder":"claude,grok,codex")", "50% | 37%"},
           {.used = "Window labels in menu bar",
            .told = "check box Window labels in menu bar*",
            .stored = R"("menuBarLabels":true)",
            .redraws = false},
           {"Teal", "radio button Teal*", R"("accent.grok":"teal")"},
           {"Pills", "radio button Rings;radio button Pills*;", R"("menuBarStyle":"pills")"},
           {.used = "Colors",
            .told = "combo box By window+;",
            .stored = R"("ringColors":"byWindow")",
            .keys = {"Down", "Return"}}}) {
    host.heard.clear();
    use(row.used);
    if (!row.keys.empty()) {
      press(row.keys);
    }
    EXPECT_TRUE(tells(row.told)) << row.told << "\n" << text;
    EXPECT_TRUE(eventually([&] { return stored().find(row.stored) != std::string::npos; }))
        << row.stored << "\n"
        << stored();
    EXPECT_TRUE(eventually([&] { return host.itemProperties()["XAyatanaLabel"] == row.label; }))
        << row.used << host.itemProperties()["XAyatanaLabel"].toString().toStdString();
    EXPECT_TRUE(eventually([&] {
      return !row.redraws || std::ranges::count(host.heard, std::string("NewIcon")) > 0;
    })) << row.used;
  }
  std::string chosen = stored();
  chosen.replace(chosen.find("pills"), 5, "rings");
  std::filesystem::rename(home.write("edited.json", chosen), preferences);
  EXPECT_TRUE(tells("radio button Rings*;radio button Pills;")) << text;

  use("Launch at login");
  EXPECT_TRUE(tells("check box Launch at login*")) << text;

  press({"Escape"});
  EXPECT_TRUE(tells("push button Settings;panel Claude(")) << text;
  press({"Escape"});
  EXPECT_TRUE(tells("dialog", false)) << text;
  EXPECT_EQ(program.end(), "0");

  // What the next login starts.
  host.item.clear();
  test::ChildProcess again =
      run({"/bin/sh", "-c", "eval exec $(sed -n s/^Exec=//p ~/.config/autostart/*.desktop)"});
  EXPECT_TRUE(eventually([this] { return !host.item.isEmpty(); }));
  EXPECT_EQ(host.itemProperties()["XAyatanaLabel"], "wk 50% | 5h 37%");
  EXPECT_EQ(again.end(), "0");
}

TEST_F(PopoverEndToEnd, OpensWhenTheProgramIsStartedAgain) {
  test::ChildProcess program = start({"--open"});
  const auto isOpen = [&] {
    return eventually([&] {
      return run({MARIGOLD_XDOTOOL, "search", "--onlyvisible", "--name", "^Marigold$"})
                 .finish()
                 .second == 0;
    });
  };
  EXPECT_TRUE(isOpen());
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"--open"}, {"--open", "again"}}) {
    if (arguments.size() < 2) {
      EXPECT_TRUE(tells("dialog")) << text;
      press({"Escape"});
      EXPECT_TRUE(tells("dialog", false)) << text;
    }
    EXPECT_EQ(start(arguments).finish().second, 0);
    EXPECT_TRUE(isOpen());
  }
  EXPECT_EQ(program.end(), "0");
}

}  // namespace
}  // namespace marigold
