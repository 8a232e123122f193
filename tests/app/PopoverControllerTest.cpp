#include <gmock/gmock.h>

#include "app/AppDelegate.h"
#include "app/CommandLine.h"
#include "app/PopoverController.h"
#include "claude/ClaudeTexts.h"
#include "support/Desk.h"
#include "support/PopoverText.h"
#include "support/SimplePorts.h"
#include "support/StoreFixture.h"

namespace marigold {
namespace {

using Page = PopoverContent::Page;
using Refresh = PopoverContent::Refresh;

struct PopoverControllerTest : testing::Test, protected test::StoreFixture {
  test::Desk window;
  const test::FixedLocalTimeText times;
  std::unique_ptr<PopoverController> controller;

  PopoverControllerTest() {
    makeStore();
    store->start();
    const auto at = loop.date();
    codex->answer = [at](Date) { return test::reading(ProviderID::codex, 10, at); };
    grok->answer = [at](Date) { return test::reading(ProviderID::grok, 20, at); };
    make({});
    store->onStateChange = [this] { controller->refresh(); };
    settle();
  }
  void make(const PopoverTraits& traits) {
    controller.reset();
    controller = std::make_unique<PopoverController>(
        PopoverController::Services{*store, loop, window, window, window, times, traits});
  }
  void answer(const Health& health, bool latches = false) {
    claude.latched = latches;
    claude.replyAll(test::reading(ProviderID::claude, 42, loop.date()).withHealth(health));
    settle();
  }
  [[nodiscard]] std::string card(std::size_t index) const {
    return index < window.content.cards.size() ? test::told(window.content.cards[index]) : "";
  }
  void press(std::size_t index) {
    for (const CardBlock& block : window.content.cards.at(index).blocks) {
      if (const auto* const button = std::get_if<CardButton>(&block)) {
        const Handler handler = button->press;
        handler();
        break;
      }
    }
    settle();
  }
  void use(const std::string& key, int choice) {
    const Handler handler = test::row(window.content.settings, key)->use;
    handler(choice);
    settle();
  }
};

TEST_F(PopoverControllerTest, HandsOverWhatChangedAndOnlyWhileItIsOpen) {
  answer(Health::ok());
  store->preferences().setAccent(ProviderID::codex, ProviderAccent::pink);
  settle();
  EXPECT_EQ(window.changes, 0);
  controller->open();
  EXPECT_TRUE(window.isOpen);
  EXPECT_EQ(window.changes, 1);
  EXPECT_THAT(card(0), testing::StartsWith("Claude\n5h 42% solid"));
  controller->refresh();
  EXPECT_EQ(window.changes, 1) << "nothing changed";
  window.looks = {.increaseContrast = true, .reduceMotion = true, .darkWindows = true};
  controller->refresh();
  EXPECT_EQ(window.content.theme, (MarigoldTheme{.scheme = MarigoldTheme::Scheme::dark,
                                                 .contrast = MarigoldTheme::Contrast::increased,
                                                 .reduceMotion = true}));
  const auto& row = std::get<CardRow>(window.content.cards[1].blocks[0]);
  EXPECT_EQ(row.bar.fill->red, 0.90) << "the windows' pink";
  const SettingsRow& colors = *test::row(window.content.settings, "grok.color");
  EXPECT_EQ(std::get<SettingsChoice>(colors.control).options[1].color->red, 0.20);
  const Handler show = test::row(window.content.settings, "claude")->use;
  show(0);
  EXPECT_THAT(card(0), testing::StartsWith("Codex\n5h 10% solid")) << "in the same turn";
  settle();
  window.close();
  const int before = window.changes;
  use("grok", 0);
  EXPECT_EQ(window.changes, before);
}

TEST_F(PopoverControllerTest, OpensAtTheCardsAndLeadsToTheSettings) {
  controller->open();
  EXPECT_EQ(window.content.page, Page::cards);
  window.content.showPage(static_cast<int>(Page::settings));
  EXPECT_EQ(window.content.page, Page::settings);
  window.content.showPage(static_cast<int>(Page::cards));
  EXPECT_EQ(window.content.page, Page::cards);
  for (const char* provider : {"claude", "codex", "grok"}) {
    use(provider, 0);
  }
  EXPECT_EQ(card(0), "\nNo providers are shown.\n(Choose in Settings)");
  press(0);
  EXPECT_EQ(window.content.page, Page::settings);
  window.close();
  controller->open();
  EXPECT_EQ(window.content.page, Page::cards);
}

TEST_F(PopoverControllerTest, ARefreshRunsAndIsDoneForASecond) {
  answer(Health::ok());
  controller->open();
  EXPECT_EQ(window.content.refresh, Refresh::idle);
  const auto refreshed = [this] {
    window.content.refreshNow();
    settle();
    EXPECT_EQ(window.content.refresh, Refresh::running);
    answer(Health::ok());
    EXPECT_EQ(window.content.refresh, Refresh::done);
  };
  refreshed();
  advance(0.75);
  refreshed();  // again, before the mark is gone
  advance(0.75);
  EXPECT_EQ(window.content.refresh, Refresh::done) << "for a second from its own end";
  advance(0.25);
  EXPECT_EQ(window.content.refresh, Refresh::idle);
  refreshed();
  window.close();
  controller->open();
  EXPECT_EQ(window.content.refresh, Refresh::idle) << "that was then";
  refreshed();
  controller->stop();
  const int before = window.changes;
  advance(2);
  EXPECT_EQ(window.changes, before);
}

TEST_F(PopoverControllerTest, ControlsReachTheStoreAndTheApplication) {
  controller->open();
  answer(Health::reconnect(std::string(ClaudeUnavailable::timedOut)), true);
  EXPECT_THAT(card(0), testing::HasSubstr("\n(Try Again)\n"));
  press(0);
  EXPECT_EQ(claude.retries, 1);
  EXPECT_THAT(card(0), testing::HasSubstr("\n(Try Again…)\n"));
  answer(Health::ok());
  EXPECT_THAT(card(0), testing::StartsWith("Claude\n5h 42% solid"));
  use("readClaude", 0);
  EXPECT_EQ(card(0), "Claude [off]\n(Turn On)");
  press(0);
  EXPECT_THAT(card(0), testing::StartsWith("Claude\n- Checking Claude..."));
  use("readClaude", 0);
  use("readClaude", 1);
  EXPECT_FALSE(store->preferences().claudeTurnedOff());
  use("clearStoredData", 0);
  EXPECT_GT(std::ranges::count(codex->calls, "forget"), 0);
  use("about", 0);
  use("quit", 0);
  EXPECT_EQ(window.journal, (test::Desk::Journal{"activate", "popover", versionText(), "quit"}));
  use("launchAtLogin", 1);
  EXPECT_EQ(loginItem.asked.back(), "register");
  use("launchAtLogin", 0);
  EXPECT_EQ(loginItem.asked.back(), "unregister");
}

TEST_F(PopoverControllerTest, NoWordOfOneDesktopIsShownOnAnother) {
  controller.reset();
  EXPECT_FALSE(window.onClosed);
  UpdaterController updater;
  const test::FixedTextMeasurer measurer;
  const PopoverTraits traits{
      .texts = linuxTexts, .offersBarColors = true, .looksIn = {"~", "~", "~"}};
  AppDelegate delegate({*store, loop, log, attention, window, window, window, window, updater,
                        times, measurer, surroundings, 42, traits});
  delegate.applicationDidFinishLaunching();
  loginItem.now = LoginItem::Status::requiresApproval;
  delegate.showPopover();
  use("about", 0);
  std::vector<Health> states{Health::ok(),
                             Health::rateLimited({}),
                             Health::serverError({}),
                             Health::notInstalled("Claude Code not detected"),
                             Health::stale("fetch failed"),
                             Health::stale("unexpected payload")};
  namespace Texts = ClaudeUnavailable;
  for (const std::string_view text :
       {Texts::ambiguous, Texts::unauthorized, Texts::indeterminate, Texts::timedOut,
        Texts::unreadable, Texts::tokenExpired, Texts::keychainLocked}) {
    states.push_back(Health::reconnect(std::string(text)));
    states.push_back(Health::stale(std::string(text)));
  }
  for (const Health& health : states) {
    for (const bool latches : {false, true}) {
      store->retryClaudeRead();
      settle();
      answer(health, latches);
      std::string all = test::everyText(window.content);
      const StatusItemContent& item = window.shown.back();
      all.append(item.tooltip).append(item.tooltipTitle).append(item.accessibilityValue);
      all.append(window.about.credits);
      for (const MenuItem& entry : window.item->onMenuRead(false)) {
        all.append(entry.title).append(" ").append(entry.tooltip).append("\n");
      }
      for (const char* word : {"Mac", "Keychain", "System Settings", "Apple", "notarized",
                               "in Terminal", "Login Items"}) {
        EXPECT_THAT(all, testing::Not(testing::HasSubstr(word)));
      }
      for (const char* word :
           {"credentials file", "Open login settings", "this computer for", "Uses Qt"}) {
        EXPECT_THAT(all, testing::HasSubstr(word));
      }
    }
  }
}

}  // namespace
}  // namespace marigold
