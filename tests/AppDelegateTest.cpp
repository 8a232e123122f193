#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AppDelegate.h"
#include "support/FixedLocalTimeText.h"
#include "support/FixedTextMeasurer.h"
#include "support/StoreFixture.h"

namespace marigold {
namespace {

using Journal = std::vector<std::string>;
using Button = StatusItemClick::Button;

// Ports that write down what they are asked, in one journal.
struct Ports {
  Journal journal;
  std::vector<StatusItemContent> shown;
  std::vector<MenuItem> menu;
  StatusItem* item = nullptr;
  int refusals = 0;

  struct Item final : StatusItem {
    explicit Item(Ports& owner) : ports(owner) {}
    void show(const StatusItemContent& content) override { ports.shown.push_back(content); }
    void openMenu(std::vector<MenuItem> items, std::optional<Point> /*at*/) override {
      ports.journal.emplace_back("menu");
      ports.menu = std::move(items);
    }
    Ports& ports;
  };
  struct Bar final : StatusBar {
    explicit Bar(Ports& owner) : ports(owner) {}
    std::unique_ptr<StatusItem> makeItem() override {
      if (ports.refusals-- > 0) {
        return nullptr;
      }
      ports.journal.emplace_back("item");
      auto made = std::make_unique<Item>(ports);
      ports.item = made.get();
      return made;
    }
    Ports& ports;
  } bar{*this};
  struct Window final : Popover {
    explicit Window(Ports& owner) : ports(owner) {}
    void setCards(const std::vector<ProviderCard>& next) override { cards = next; }
    void open(std::optional<Point> /*at*/) override {
      ports.journal.emplace_back("popover");
      isOpen = true;
    }
    void close() override {
      ports.journal.emplace_back("close");
      isOpen = false;
      onClosed();
    }
    [[nodiscard]] bool isShown() const override { return isOpen; }
    Ports& ports;
    bool isOpen = false;
    std::vector<ProviderCard> cards;
  } popover{*this};
  struct Looks final : Appearance {
    AppearanceSettings now;
    [[nodiscard]] AppearanceSettings settings() const override { return now; }
  } appearance;
  struct Control final : ApplicationControl {
    explicit Control(Ports& owner) : ports(owner) {}
    void installMainMenu() override { ports.journal.emplace_back("main menu"); }
    void activate() override { ports.journal.emplace_back("activate"); }
    void quit() override { ports.journal.emplace_back("quit"); }
    Ports& ports;
  } application{*this};
  struct Login final : LoginItem {
    explicit Login(Ports& owner) : ports(owner) {}
    void refreshStatus() override { ports.journal.emplace_back("login status"); }
    void reregisterIfEnabled() override { ports.journal.emplace_back("reregister"); }
    Ports& ports;
  } loginItem{*this};
  Updater updater;
};

class AppDelegateTest : public testing::Test, protected test::StoreFixture {
 protected:
  Ports ports;
  test::FixedLocalTimeText times;
  test::FixedTextMeasurer measurer;
  std::unique_ptr<AppDelegate> delegate;

  // Codex alone, whose reading stays as it is until a test changes it.
  AppDelegateTest() {
    makeStore();
    store->preferences().setVisible(ProviderID::claude, false);
    store->turnOffClaude();
    show({.label = "5h", .percent = 80, .resetsAt = loop.date() + Seconds{100.0}});
    delegate = std::make_unique<AppDelegate>(AppDelegate::Services{.store = *store,
                                                                   .loop = loop,
                                                                   .log = log,
                                                                   .attention = attention,
                                                                   .statusBar = ports.bar,
                                                                   .popover = ports.popover,
                                                                   .appearance = ports.appearance,
                                                                   .application = ports.application,
                                                                   .loginItem = ports.loginItem,
                                                                   .updater = ports.updater,
                                                                   .localTime = times,
                                                                   .textMeasurer = measurer,
                                                                   .surroundings = surroundings,
                                                                   .processId = 42});
  }
  void show(const UsageWindow& window) {
    const ProviderSnapshot read{
        .provider = ProviderID::codex, .windows = {window}, .capturedAt = loop.date()};
    codex->answer = [read](Date) { return ProviderSnapshot(read); };
  }
  void launch() {
    delegate->applicationDidFinishLaunching();
    settle();
  }
  [[nodiscard]] const StatusItemContent& last() const { return ports.shown.back(); }
  // Whether the idle glyph's flower is shown.
  [[nodiscard]] static bool idle(const StatusItemContent& content) {
    return std::ranges::any_of(content.mark.ops, [](const DrawOp& op) {
      return std::holds_alternative<StrokeLoop>(op.shape);
    });
  }
  // The filled arc of the only ring; nothing while no ring is filled.
  [[nodiscard]] static std::optional<double> sweep(const StatusItemContent& content) {
    for (const DrawOp& op : content.mark.ops) {
      if (const auto* arc = std::get_if<StrokeArc>(&op.shape); arc != nullptr && arc->roundCaps) {
        return arc->sweep;
      }
    }
    return std::nullopt;
  }
};

TEST_F(AppDelegateTest, LaunchesInOrderAndShowsWhatIsKnown) {
  delegate->applicationDidFinishLaunching();
  EXPECT_EQ(ports.journal, (Journal{"main menu", "item", "reregister"}));
  EXPECT_EQ(log.lines.front(), "launched (pid 42)");
  EXPECT_EQ(last().tooltip,
            "Marigold: no providers shown in the menu bar. Enable one in the popover.");
  settle();
  EXPECT_EQ(last().tooltip, "Codex: 5h 80% used, updated just now");
  EXPECT_EQ(last().accessibilityLabel, "Marigold");
  EXPECT_EQ(last().accessibilityValue, "Codex 5h 80%, updated just now");
  EXPECT_EQ(last().label, "80%");
  EXPECT_EQ(sweep(last()), 0.8);
}

TEST_F(AppDelegateTest, JoinsLinesOfSlotsAndProviders) {
  surroundings.bundleIdentifier += ".dev";
  store->preferences().setShowsInMenuBar(ProviderID::grok, true);
  codex->answer = [](Date now) {
    ProviderSnapshot both = test::reading(ProviderID::codex, 37, now);
    both.windows.push_back({.label = "Weekly", .percent = 12});
    return both;
  };
  store->preferences().setPercentScope(ProviderID::codex, MenuBarTextScope::both);
  launch();
  EXPECT_EQ(last().tooltip,
            "Codex: 5h 37% used, updated just now\nCodex: Weekly 12% used, updated just now\n"
            "Grok: 5h 20% used, updated just now");
  EXPECT_EQ(last().accessibilityValue,
            "Codex 5h 37%, updated just now; Codex Weekly 12%, updated just now; "
            "Grok 5h 20%, updated just now");
  EXPECT_EQ(last().label, "37% 12% | 20%");
  store->preferences().setPercentScope(ProviderID::grok, MenuBarTextScope::off);
  settle();
  EXPECT_EQ(last().label, "37% 12%") << "no separator for nothing";
  EXPECT_EQ(last().accessibilityLabel, "Marigold Dev");
}

TEST_F(AppDelegateTest, AsksForAnItemAgainUntilThereIsOne) {
  ports.refusals = 2;
  launch();
  EXPECT_EQ(std::ranges::count(log.lines, "status item had no button; retrying shortly"), 1);
  advance(0.75);
  EXPECT_EQ(std::ranges::count(log.lines, "status item had no button; retrying shortly"), 2);
  EXPECT_TRUE(ports.shown.empty());
  advance(0.5);
  ASSERT_FALSE(ports.shown.empty());
  EXPECT_EQ(last().label, "80%");
}

TEST_F(AppDelegateTest, ClicksOpenThePopoverOrTheMenuAndCountAsAttention) {
  launch();
  struct Row {
    StatusItemClick click;
    Journal journal;
  };
  for (const Row& row :
       {Row{{}, {"login status", "activate", "popover"}}, Row{{}, {"close"}},
        Row{{.button = Button::right}, {"menu"}}, Row{{.controlHeld = true}, {"menu"}}}) {
    ports.journal.clear();
    const std::size_t reads = codex->calls.size();
    ports.item->onClick(row.click);
    settle();
    EXPECT_EQ(ports.journal, row.journal);
    EXPECT_EQ(codex->calls.size(), reads + 1);
  }
  for (const bool opening : {false, true}) {
    const std::size_t reads = codex->calls.size();
    EXPECT_EQ(ports.item->onMenuRead(opening).size(), ports.menu.size());
    settle();
    EXPECT_EQ(codex->calls.size() > reads, opening);
  }
  std::map<std::string, Journal> done;
  for (const MenuItem& item : ports.menu) {
    if (item.action) {
      ports.journal.clear();
      const std::size_t reads = codex->calls.size();
      item.action();
      settle();
      done[item.title] = ports.journal;
      EXPECT_EQ(codex->calls.size() > reads, item.title != "Quit Marigold") << item.title;
    }
  }
  EXPECT_EQ(done, (std::map<std::string, Journal>{
                      {"Open Marigold", {"login status", "activate", "popover"}},
                      {"Refresh Now", {}},
                      {"Quit Marigold", {"quit"}}}));
}

TEST_F(AppDelegateTest, DrawsOnlyWhatChangedAndWhenItChanges) {
  launch();
  const std::size_t before = ports.shown.size();
  advance(60);
  EXPECT_EQ(ports.shown.size(), before) << "the same picture and words are not sent again";
  advance(30.5);
  EXPECT_EQ(last().tooltip, "Codex: 5h 80% used, updated 1m ago");
  EXPECT_EQ(ports.shown.size(), before + 1);

  ports.appearance.now.darkMenuBar = false;
  ports.appearance.onChange();
  EXPECT_EQ(ports.shown.size(), before + 2);
  loop.setDate(loop.date() + Seconds{7 * 86400.0});
  EXPECT_EQ(attention.tell(AttentionEvent::clockChange), 1);
  EXPECT_EQ(last().tooltip, "Codex: 5h window reset, no new reading yet");
  EXPECT_EQ(sweep(last()), std::nullopt) << "reset long ago: no drain";
}

TEST_F(AppDelegateTest, AResetDrainsOnceAndThenSaysSo) {
  launch();
  advance(100);
  const std::size_t before = ports.shown.size();
  ASSERT_EQ(sweep(last()), 0.8);
  advance(2);
  std::vector<double> sweeps;
  for (std::size_t i = before; i < ports.shown.size(); ++i) {
    if (const auto filled = sweep(ports.shown[i])) {
      sweeps.push_back(*filled);
      EXPECT_EQ(ports.shown[i].tooltip, "Codex: 5h window reset, no new reading yet");
      EXPECT_FALSE(idle(ports.shown[i]));
    }
  }
  EXPECT_GE(sweeps.size(), 12U) << "frames that look the same are drawn once";
  EXPECT_LE(sweeps.size(), 24U);
  EXPECT_TRUE(std::ranges::is_sorted(sweeps, std::greater<>()));
  EXPECT_DOUBLE_EQ(sweeps.back(), 0.03);
  EXPECT_TRUE(idle(last()));
  const std::size_t after = ports.shown.size();
  advance(50);
  EXPECT_EQ(ports.shown.size(), after) << "a drain happens once";
}

TEST_F(AppDelegateTest, NothingDrainsWithReducedMotionOrANewReading) {
  ports.appearance.now.reduceMotion = true;
  launch();
  advance(101);
  EXPECT_EQ(sweep(last()), std::nullopt);
  EXPECT_EQ(last().tooltip, "Codex: 5h window reset, no new reading yet");

  ports.appearance.now.reduceMotion = false;
  show({.label = "5h", .percent = 60, .resetsAt = loop.date() + Seconds{50.0}});
  store->refreshNow();
  settle();
  ASSERT_EQ(sweep(last()), 0.6);
  advance(50);
  show({.label = "5h", .percent = 2, .resetsAt = loop.date() + Seconds{18000.0}});
  store->refreshNow();
  settle();
  const std::size_t before = ports.shown.size();
  advance(2);
  EXPECT_EQ(ports.shown.size(), before);
  EXPECT_EQ(sweep(last()), 0.03);
}

TEST_F(AppDelegateTest, WhatHappensDuringADrainEndsItOrGoesOn) {
  launch();
  struct Row {
    const char* name;
    std::function<void()> happens;
    std::optional<double> sweep;  // afterwards
  };
  const auto reset = [this] { return loop.date() + Seconds{18000.0}; };
  for (const Row& row : {
           Row{"a reading comes", [&] { show({.label = "5h", .percent = 3, .resetsAt = reset()}); },
               0.03},
           Row{"the provider goes",
               [&] { store->preferences().setVisible(ProviderID::codex, false); }, std::nullopt},
           Row{"motion is reduced", [&] { ports.appearance.now.reduceMotion = true; },
               std::nullopt},
       }) {
    store->preferences().setVisible(ProviderID::codex, true);
    ports.appearance.now.reduceMotion = false;
    show({.label = "5h", .percent = 80, .resetsAt = loop.date() + Seconds{10.0}});
    store->refreshNow();
    settle();
    ASSERT_EQ(sweep(last()), 0.8) << row.name;
    advance(10.5);
    const auto drained = sweep(last());
    ASSERT_TRUE(drained && *drained < 0.8 && *drained > 0.03) << row.name;
    ports.appearance.now.darkMenuBar = !ports.appearance.now.darkMenuBar;
    ports.appearance.onChange();
    EXPECT_EQ(sweep(last()), drained) << "redrawn where it is";
    row.happens();
    store->refreshNow();
    settle();
    ports.appearance.onChange();
    EXPECT_EQ(sweep(last()), row.sweep) << row.name;
    advance(1);
    EXPECT_EQ(sweep(last()), row.sweep) << row.name;
  }
}

TEST_F(AppDelegateTest, TheItemKeepsItsWidthAndThePopoverItsCardsUpToDate) {
  store->preferences().setResetScope(ProviderID::codex, MenuBarTextScope::both);
  launch();
  ports.item->onClick({});
  settle();
  ASSERT_EQ(ports.popover.cards.size(), 2U);
  EXPECT_EQ(ports.popover.cards.front().rows.front().value, "80%");
  const double wide = last().mark.size.width;
  show({.label = "5h", .percent = 7});
  store->refreshNow();
  settle();
  EXPECT_EQ(ports.popover.cards.front().rows.front().value, "7%");
  EXPECT_EQ(last().mark.size.width, wide);
  show({.label = "5h", .percent = 7, .resetsAt = loop.date() + Seconds{119.0}});
  store->refreshNow();
  settle();
  EXPECT_EQ(ports.popover.cards.front().rows.front().subLabel, "in 1m");
  advance(120);
  EXPECT_EQ(ports.popover.cards.front().rows.front().subLabel, "") << "time goes by in it";
  ports.item->onClick({});
  EXPECT_LT(last().mark.size.width, wide);
}

TEST_F(AppDelegateTest, NothingRunsOnAfterTheEnd) {
  launch();
  delegate->applicationWillTerminate();
  settle();
  EXPECT_FALSE(store->engineRuns());
  const std::size_t before = ports.shown.size();
  const std::size_t reads = codex->calls.size();
  advance(400);
  EXPECT_EQ(ports.shown.size(), before);
  EXPECT_EQ(codex->calls.size(), reads);
}

}  // namespace
}  // namespace marigold
