#include <gtest/gtest.h>

#include "app/CommandLine.h"
#include "app/StatusMenu.h"
#include "support/Desk.h"
#include "support/StoreFixture.h"

namespace marigold {
namespace {

using Lines = std::vector<std::string>;

struct Updates final : UpdaterController {
  [[nodiscard]] bool canCheckForUpdates() const override { return canCheck; }
  void checkForUpdates() override { canCheck = false; }
  bool canCheck = false;
};

class StatusMenuTest : public testing::Test, protected test::StoreFixture {
 protected:
  StatusMenuTest() {
    makeStore();
    store->start();
    codex->answer = [](Date now) {
      return ProviderSnapshot{
          .provider = ProviderID::codex,
          .windows = {{.label = "5h", .percent = 37}, {.label = "Weekly", .percent = 12}},
          .capturedAt = now};
    };
    settle();
    claude.replyAll(test::reading(ProviderID::claude, 42, loop.date()));
    settle();
  }
  using Listed = std::vector<std::pair<std::string, Work>>;
  // A line for each item: its mark, how far it is in, the title and what it explains.
  static void list(const std::vector<MenuItem>& items, const std::string& under, Listed& lines) {
    using enum MenuItem::Kind;
    for (const MenuItem& item : items) {
      std::string line = under + std::string(2 * static_cast<std::size_t>(item.indent), ' ');
      if (item.kind == radio) {
        line += item.checked ? "(o) " : "( ) ";
      } else if (item.kind == checkbox) {
        line += item.checked ? "[x] " : "[ ] ";
      }
      line += item.kind == separator ? "-" : item.title;
      line += item.enabled ? "" : " (off)";
      line += item.tooltip.empty() ? "" : ": " + item.tooltip;
      lines.emplace_back(line, item.action);
      list(item.items, under + item.title + " > ", lines);
    }
  }
  Listed listed() {
    Listed all;
    list(statusMenu(*store, updates, desk, macTexts, {}), "", all);
    return all;
  }
  // Chooses the item of that line and gives the lines that are new then.
  Lines choose(const std::string& line) {
    const Listed before = listed();
    const auto chosen = std::ranges::find_if(
        before, [&](const auto& each) { return each.first.starts_with(line); });
    if (chosen != before.end()) {
      chosen->second();
    }
    settle();
    Lines changes;
    for (const auto& [now, action] : listed()) {
      if (std::ranges::find(before, now, &Listed::value_type::first) == before.end()) {
        changes.push_back(now);
      }
    }
    return changes;
  }

  Updates updates;
  test::Desk desk;
  // Lines with what they explain.
  const std::string byWindow =
      "Colors by Window: The 5h window in teal and the Weekly window in purple. Red at 90% and "
      "over.";
  const std::string byUsage =
      "Colors by Usage: Green, amber or red by how much of the limit is used, or the provider's "
      "own color.";
  const std::string labels =
      "Window Labels: Name each window, 5h or wk, ahead of its percentage and timer.";
};

TEST_F(StatusMenuTest, ListsWhatCanBeChosen) {
  store->preferences().setVisible(ProviderID::grok, false);
  store->preferences().setShowsInMenuBar(ProviderID::grok, true);
  store->preferences().setPercentScope(ProviderID::claude, MenuBarTextScope::weekly);
  store->preferences().moveProvider(ProviderID::codex, true);
  // A line for each item of the menu itself, its choices behind it.
  std::string all;
  for (const auto& [line, action] : listed()) {
    const auto behind = line.find(" > ");
    const bool isChoice = behind != std::string::npos || line.starts_with("  ");
    all += (isChoice ? "" : "\n") + line.substr(behind == std::string::npos ? 0 : behind);
  }
  EXPECT_EQ(all, R"(
Refresh Now
Show in Menu Bar > [x] Codex > [x] Claude > [ ] Grok (off)
Codex: percentage (off)  ( ) Off  (o) 5h  ( ) Weekly  ( ) Both
Codex: reset timer (off)  (o) Off  ( ) 5h  ( ) Weekly  ( ) Both
Claude: percentage (off)  ( ) Off  (o) On
Claude: reset timer (off)  (o) Off  ( ) On
Menu Bar Style > (o) Rings > ( ) Pills
-
( ) )" + byWindow + "\n(o) " +
                     byUsage + "\n-\n[ ] " + labels + R"(
-
Check for Updates… (off)
About Marigold
-
Turn Off Claude Usage: Stop reading your Claude login and forget Claude's cached usage numbers. Codex and Grok are not affected.
Clear Stored Usage Data: Forget the usage numbers cached on this Mac for every provider: Claude, Codex and Grok. Your Claude login is never stored on disk, so there is nothing of it to clear.
-
Quit Marigold)");
}

TEST_F(StatusMenuTest, DoesWhatIsChosen) {
  store->preferences().setVisible(ProviderID::claude, false);
  store->preferences().setPercentScope(ProviderID::codex, MenuBarTextScope::both);
  for (const auto& [line, changes] : std::vector<std::pair<std::string, Lines>>{
           {"  ( ) Weekly", {"  (o) Weekly"}},  // the percentage's comes first
           {"Menu Bar Style > ( ) Pills",
            {"Menu Bar Style > ( ) Rings", "Menu Bar Style > (o) Pills"}},
           {"( ) Colors by Window", {"(o) " + byWindow, "( ) " + byUsage}},
           {"[ ] Window Labels", {"[x] " + labels}},
           {"[x] Window Labels", {"[ ] " + labels}},
           {"Show in Menu Bar > [ ] Grok",
            {"Show in Menu Bar > [x] Grok", "Grok: percentage (off)", "  (o) On",
             "Grok: reset timer (off)", "  ( ) On"}},
           {"Show in Menu Bar > [x] Grok", {"Show in Menu Bar > [ ] Grok"}},
           {"Turn Off Claude Usage",
            {"Turn On Claude Usage: Read your Claude login again and show usage."}}}) {
    EXPECT_EQ(choose(line), changes) << line;
  }
  const Preferences& chosen = store->preferences();
  EXPECT_EQ(chosen.percentScope(ProviderID::codex), MenuBarTextScope::weekly);
  EXPECT_EQ(chosen.resetScope(ProviderID::codex), MenuBarTextScope::off);
  EXPECT_EQ(chosen.menuBarStyle(), MenuBarStyle::pills);
  EXPECT_EQ(chosen.ringColors(), RingColorMode::byWindow);
  const int reads = claude.retries;
  choose("Turn On Claude Usage");
  EXPECT_EQ(claude.retries, reads + 1) << "at once";

  const std::size_t polls = claude.polls.size();
  choose("Refresh Now");
  EXPECT_EQ(claude.polls.size(), polls + 1);
  EXPECT_EQ(claude.polls.back(), Seconds{0});
  choose("Clear Stored Usage Data");
  EXPECT_EQ(std::ranges::count(codex->calls, "forget"), 1);
  EXPECT_EQ(std::ranges::count(grok->calls, "forget"), 1);
  EXPECT_EQ(claude.forgets, 2);

  updates.canCheck = true;
  for (const char* const line : {"Check for Updates…", "About Marigold", "Quit Marigold"}) {
    choose(line);
  }
  EXPECT_FALSE(updates.canCheck) << "asked";
  EXPECT_EQ(desk.journal, (Lines{versionText(), "quit"}));
}

}  // namespace
}  // namespace marigold
