#include <gmock/gmock.h>

#include "popover/SettingsForm.h"
#include "support/PopoverText.h"
#include "support/SimplePorts.h"

namespace marigold {
namespace {

struct SettingsFormTest : testing::Test {
  test::MemoryDefaults defaults;
  Preferences preferences{defaults};
  std::map<ProviderID, ProviderSnapshot> readings;
  std::string done;
  SettingsSource source{
      .preferences = preferences,
      .snapshot =
          [this](ProviderID provider) {
            const auto found = readings.find(provider);
            return found == readings.end() ? nullptr : &found->second;
          },
      .actions = {.setLaunchAtLogin = [this](bool on) { done += on ? "launch " : "stay "; },
                  .openLoginItemSettings = [this] { done += "open "; },
                  .setReadsClaude = [this](bool on) { done += on ? "read " : "off "; },
                  .clearStoredData = [this] { done += "clear "; },
                  .showAbout = [this] { done += "about "; },
                  .quit = [this] { done += "quit "; }}};

  void reads(ProviderID provider, const std::vector<std::string>& windows) {
    ProviderSnapshot& reading = readings[provider] = {.provider = provider};
    for (const std::string& label : windows) {
      reading.windows.push_back({.label = label});
    }
  }
  void use(const std::string& key, int choice) const {
    const SettingsForm form = settingsForm(source);
    const SettingsRow* const row = test::row(form, key);
    ASSERT_NE(row, nullptr) << key;
    row->use(choice);
  }
};

constexpr auto colors = " Teal Blue Indigo Purple Pink Orange Slate\n";

TEST_F(SettingsFormTest, HoldsEveryChoiceAndOffersWhatTheReadingsHave) {
  reads(ProviderID::claude, {"5h", "Weekly", "Opus"});
  reads(ProviderID::codex, {"Weekly"});
  preferences.setPercentScope(ProviderID::codex, MenuBarTextScope::fiveHour);
  preferences.setMenuWindow(ProviderID::grok, MenuBarWindowKind::weekly);
  preferences.setVisible(ProviderID::codex, false);
  source.offersBarColors = true;
  const SettingsRow claude = settingsForm(source).sections[0].rows[0];
  EXPECT_EQ(claude.detailsTitle, "Claude: details");
  const auto& swatches = std::get<SettingsChoice>(claude.details.back().control);
  EXPECT_EQ(swatches.kind, SettingsChoice::Kind::colors);
  EXPECT_FALSE(swatches.options[0].color);
  EXPECT_EQ(swatches.options[1].color->red, 0.07);
  EXPECT_EQ(test::told(settingsForm(source)), std::string(R"(Assistants
claude: Claude on
  claude.order: Order Move down
  claude.menuBar: Show in menu bar on
  claude.window: Window *Auto 5h Weekly
  claude.percentage: Percentage Off *5h Weekly Both
  claude.resetTimer: Reset timer *Off 5h Weekly Both
  claude.color: Color *By usage)") + colors + R"(codex: Codex off
  codex.order: Order Move up Move down
  ~codex.menuBar: Show in menu bar off
  ~codex.window: Window *Auto Weekly
  ~codex.percentage: Percentage Off *On
  ~codex.resetTimer: Reset timer *Off On
  ~codex.color: Color *By usage)" + colors + R"(grok: Grok on
  grok.order: Order Move up
  grok.menuBar: Show in menu bar off
  ~grok.window: Window Auto *Weekly
  ~grok.percentage: Percentage Off *On
  ~grok.resetTimer: Reset timer *Off On
  grok.color: Color *By usage)" + colors + R"(Menu bar
style: Style *Rings Pills
colors: Colors *By usage By window // )" + std::string(ringColorsExplanation) +
                                                  R"(
labels: Window labels in menu bar off // )" + std::string(menuBarLabelsExplanation) +
                                                  R"(
barColors: Bar colors *Automatic Dark Light
General
launchAtLogin: Launch at login off
readClaude: Read Claude usage on // Stop reading your Claude login and forget Claude's cached usage numbers. Codex and Grok are not affected.
clearStoredData: Stored usage data (Clear…) Clear stored usage data? )" +
                                                  std::string(clearStoredDataExplanation) +
                                                  R"( (Clear) (Cancel)
about: About Marigold (>)
quit: Quit Marigold ()
)");
}

TEST_F(SettingsFormTest, ARowDoesWhatItSays) {
  reads(ProviderID::claude, {"5h", "Weekly"});
  reads(ProviderID::codex, {"Weekly"});
  const auto everything = [this] { return test::told(settingsForm(source)); };
  source.offersBarColors = true;
  // Before, after: what of the form changes by one use of the row.
  for (const auto& [key, choice, before, after] :
       std::vector<std::tuple<const char*, int, const char*, const char*>>{
           {"grok.menuBar", 1, "~grok.window", "  grok.window"},
           {"claude.window", 2, "Window *Auto 5h Weekly", "Window Auto 5h *Weekly"},
           {"claude.window", 0, "Window Auto 5h *Weekly", "Window *Auto 5h Weekly"},
           {"claude.percentage", 3, "Percentage Off *5h", "Percentage Off 5h Weekly *Both"},
           {"claude.resetTimer", 2, "timer *Off 5h", "timer Off 5h *Weekly"},
           {"codex.resetTimer", 1, "timer *Off On", "codex.resetTimer: Reset timer Off *On"},
           {"codex.color", 7, "Orange Slate", "*Slate"},
           {"style", 1, "*Rings Pills", "Rings *Pills"},
           {"colors", 1, "*By usage By window", "By usage *By window"},
           {"labels", 1, "menu bar off //", "menu bar on //"},
           {"barColors", 2, "*Automatic", "Automatic Dark *Light"},
           {"codex.order", 0, "claude.order: Order Move down",
            "claude.order: Order Move up Move down"},
           {"codex.order", 1, "codex.order: Order Move down",
            "codex.order: Order Move up Move down"},
           {"codex", 0, "Codex on", "Codex off"}}) {
    EXPECT_THAT(everything(), testing::HasSubstr(before)) << key;
    use(key, choice);
    EXPECT_THAT(everything(), testing::HasSubstr(after)) << key;
  }
  EXPECT_EQ(preferences.resetScope(ProviderID::codex), MenuBarTextScope::weekly);
  const std::string settled = everything();
  for (const char* key : {"claude.window", "claude.percentage", "codex.color", "style"}) {
    use(key, 9);
    use(key, -1);
  }
  EXPECT_EQ(everything(), settled) << "no such choice";

  const SettingsForm shown = settingsForm(source);
  reads(ProviderID::codex, {"5h"});
  test::row(shown, "codex.percentage")->use(1);
  EXPECT_EQ(preferences.percentScope(ProviderID::codex), MenuBarTextScope::fiveHour)
      << "of what is offered by now";
}

TEST_F(SettingsFormTest, CommandsAreHandedOnAndTheSystemIsHeard) {
  source.launchAtLogin = true;
  source.launchRequiresApproval = true;
  source.launchAtLoginError = "Could not turn on launch at login: no.";
  preferences.setClaudeTurnedOff(true);
  EXPECT_THAT(test::told(settingsForm(source)), testing::HasSubstr(R"(General
launchAtLogin: Launch at login on // Could not turn on launch at login: no.
launchApproval: Approve Marigold under System Settings > General > Login Items. (Open Login Items settings)
readClaude: Read Claude usage off // Read your Claude login again and show usage.
)"));
  EXPECT_EQ(test::row(settingsForm(source), "barColors"), nullptr);
  for (const auto& [key, choice] : std::vector<std::pair<const char*, int>>{{"launchAtLogin", 1},
                                                                            {"launchAtLogin", 0},
                                                                            {"launchApproval", 0},
                                                                            {"readClaude", 1},
                                                                            {"readClaude", 0},
                                                                            {"clearStoredData", 0},
                                                                            {"about", 0},
                                                                            {"quit", 0}}) {
    use(key, choice);
  }
  EXPECT_EQ(done, "launch stay open read off clear about quit ");
}

}  // namespace
}  // namespace marigold
