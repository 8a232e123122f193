#include <cmath>

#include <gtest/gtest.h>

#include "MenuBarRender.h"
#include "app/AppDelegate.h"
#include "app/InstanceAnswers.h"
#include "bar/Palette.h"
#include "support/Desk.h"
#include "support/SimplePorts.h"
#include "support/StoreFixture.h"

namespace marigold {
namespace {

using Journal = test::Desk::Journal;
using Sweeps = std::vector<double>;
using Windows = std::vector<UsageWindow>;
using Button = StatusItemClick::Button;

class AppDelegateTest : public testing::Test, protected test::StoreFixture {
 protected:
  test::Desk desk;
  UpdaterController updater;
  test::FixedLocalTimeText times;
  test::FixedTextMeasurer measurer;
  std::unique_ptr<AppDelegate> delegate;

  // Codex alone, whose reading, like Grok's, stays as it is until a test changes it.
  AppDelegateTest() {
    makeStore();
    store->preferences().setVisible(ProviderID::claude, false);
    store->turnOffClaude();
    show({five(80, 100)});
    grok->answer = [at = loop.date()](Date) { return test::reading(ProviderID::grok, 20, at); };
  }
  void show(const Windows& windows) {
    codex->answer = [windows, at = loop.date()](Date) {
      return ProviderSnapshot{.provider = ProviderID::codex, .windows = windows, .capturedAt = at};
    };
  }
  void read(const Windows& windows) {
    show(windows);
    store->refreshNow();
    settle();
  }
  void click(const StatusItemClick& how = {}) {
    desk.item->onClick(how);
    settle();
  }
  [[nodiscard]] UsageWindow five(double percent, double resetsIn) const {
    return {.label = "5h", .percent = percent, .resetsAt = loop.date() + Seconds{resetsIn}};
  }
  void start() {
    delegate = std::make_unique<AppDelegate>(
        AppDelegate::Services{*store, loop, log, attention, desk, desk, desk, desk, updater, times,
                              measurer, surroundings, 42});
    delegate->applicationDidFinishLaunching();
  }
  void launch() {
    start();
    settle();
  }
  [[nodiscard]] const StatusItemContent& last() const { return desk.shown.back(); }
  // The filled arcs of the rings, from the left and from outside in.
  [[nodiscard]] static Sweeps sweeps(const StatusItemContent& content) {
    Sweeps filled;
    for (const DrawOp& op : content.mark.ops) {
      const auto* arc = std::get_if<StrokeArc>(&op.shape);
      if (arc != nullptr && arc->color.opacity == 1) {
        filled.push_back(std::round(1000 * (arc->sweep + 2 * arc->start)) / 1000);
      }
    }
    return filled;
  }
};

TEST_F(AppDelegateTest, LaunchesInOrderAndDrawsOnlyWhatChangedAndWhenItChanges) {
  desk.refusals = 2;
  loginItem.now = LoginItem::Status::enabled;
  start();
  delegate->showPopover();
  delegate->showMenu();
  EXPECT_EQ(desk.journal, (Journal{"main menu"})) << "nowhere to open yet";
  EXPECT_EQ(loginItem.asked, (Journal{"register"}));
  EXPECT_EQ(log.lines.front(), "launched (pid 42)");
  advance(0.75);
  EXPECT_EQ(std::ranges::count(log.lines, "status item had no button; retrying shortly"), 2);
  EXPECT_TRUE(desk.shown.empty());
  advance(0.25);
  ASSERT_FALSE(desk.shown.empty());
  EXPECT_EQ(last().tooltip, "Codex: 5h 80% used, updated just now");
  EXPECT_EQ(last().tooltipWithoutAges, "Codex: 5h 80% used, updated ");
  EXPECT_EQ(last().tooltipTitle, last().tooltip);
  EXPECT_EQ(last().accessibilityLabel, "Marigold");
  EXPECT_EQ(last().accessibilityValue, "Codex 5h 80%, updated just now");
  EXPECT_EQ(last().label, "80%");
  const std::size_t before = desk.shown.size();
  const int measured = measurer.asked;
  EXPECT_GT(measured, 0);
  advance(60);
  desk.onChange();
  EXPECT_EQ(desk.shown.size(), before) << "the same picture and words are not sent again";
  advance(30.5);
  EXPECT_EQ(last().tooltip, "Codex: 5h 80% used, updated 1m ago");
  EXPECT_EQ(desk.shown.size(), before + 1);
  EXPECT_EQ(measurer.asked, measured) << "no image shows an age";
  loop.setDate(loop.date() + Seconds{7 * 86400.0});
  EXPECT_EQ(attention.tell(AttentionEvent::clockChange), 1);
  EXPECT_EQ(last().tooltip, "Codex: 5h window reset, no new reading yet");
  EXPECT_EQ(sweeps(last()), Sweeps()) << "reset long ago: no drain";
}

TEST_F(AppDelegateTest, EveryChoiceAndLookReachesTheMark) {
  surroundings.bundleIdentifier += ".dev";
  show({five(80, 7500), {.label = "Weekly", .percent = 12}});
  Preferences& chosen = store->preferences();
  constexpr auto id = ProviderID::codex;
  chosen.setAccent(id, ProviderAccent::pink);
  start();
  EXPECT_EQ(last().tooltip, menuBarEmptyStateText(true).tooltip) << "Claude's is that it is off";
  const auto filled = [](double percent, ProviderAccent accent) {
    return GaugeBar{.percent = percent, .mode = GaugeBar::Mode::normal, .accent = accent};
  };
  MenuBarMark mark{.segments = {{.bar = filled(80, ProviderAccent::pink),
                                 .token = "80%",
                                 .inner = filled(12, ProviderAccent::pink)}},
                   .darkMenuBar = DarkMenuBar::unknown,
                   .textColor = menuBarLabelColor(DarkMenuBar::unknown, false),
                   .devMarker = true};
  const auto expectMark = [&] {
    settle();
    EXPECT_EQ(last().mark, MenuBarRender::markImage(mark, measurer));
    EXPECT_EQ(last().square, MenuBarRender::squareImage(mark));
    EXPECT_EQ(last().darkMenuBar, mark.darkMenuBar);
  };
  expectMark();
  desk.item->ground = mark.darkMenuBar = DarkMenuBar::yes;
  mark.textColor = menuBarLabelColor(DarkMenuBar::yes, false);
  desk.item->onGroundChange();
  expectMark();
  chosen.setRingColors(RingColorMode::byWindow);
  chosen.setMenuWindow(id, MenuBarWindowKind::weekly);
  chosen.setPercentScope(id, MenuBarTextScope::weekly);
  chosen.setResetScope(id, MenuBarTextScope::fiveHour);
  chosen.setMenuBarLabels(true);
  chosen.setMenuBarStyle(mark.style = MenuBarStyle::pills);
  mark.segments = {{.bar = filled(12, ProviderAccent::purple),
                    .token = "12%",
                    .inner = filled(80, ProviderAccent::teal),
                    .innerReset = "2h05m",
                    .label = "wk",
                    .innerLabel = "5h"}};
  expectMark();
  desk.looks = {.darkMenuBar = mark.darkMenuBar = DarkMenuBar::no,
                .increaseContrast = mark.highContrast = true};
  mark.textColor = menuBarLabelColor(DarkMenuBar::no, true);
  desk.onChange();
  expectMark();
  for (const auto& [choice, dark] : {std::pair(BarColors::dark, DarkMenuBar::yes),
                                     std::pair(BarColors::automatic, DarkMenuBar::no),
                                     std::pair(BarColors::light, DarkMenuBar::no)}) {
    desk.looks.darkMenuBar = choice == BarColors::light ? DarkMenuBar::yes : DarkMenuBar::no;
    chosen.setBarColors(choice);
    mark.darkMenuBar = dark;
    mark.textColor = menuBarLabelColor(dark, true);
    expectMark();
  }
  chosen.setShowsInMenuBar(id, false);
  settle();
  EXPECT_EQ(last().mark, MenuBarRender::idleImage(true, mark.textColor));
  EXPECT_EQ(last().square, MenuBarRender::idleSquare(true));
  EXPECT_EQ(last().accessibilityLabel, "Marigold Dev");
  EXPECT_EQ(last().tooltipTitle, "[Dev] " + last().tooltip);
}

TEST_F(AppDelegateTest, ClicksOpenThePopoverOrTheMenuAndCountAsAttention) {
  launch();
  const std::vector<MenuItem> menu = desk.item->onMenuRead(false);
  ASSERT_EQ(menu[0].title, "Open Marigold");
  ASSERT_EQ(menu.back().title, "Quit Marigold");
  loginItem.now = LoginItem::Status::enabled;
  const Journal opened{"activate", "popover"};
  for (const auto& [act, expected, reads] :
       std::vector<std::tuple<std::function<void()>, Journal, bool>>{
           {[&] { click(); }, opened, true},
           {[&] { click(); }, {"close"}, true},
           {menu[0].action, opened, true},
           {[&] { click({.button = Button::right}); }, {"close", "menu: Refresh Now"}, true},
           {[&] { click({.controlHeld = true}); }, {"menu: Refresh Now"}, true},
           {[&] { (void)desk.item->onMenuRead(false); }, {}, false},
           {[&] { (void)desk.item->onMenuRead(true); }, {}, true},
           {menu[1].action, {}, true},
           {menu.back().action, {"quit"}, false}}) {
    desk.journal.clear();
    const std::size_t before = codex->calls.size();
    act();
    settle();
    EXPECT_EQ(desk.journal, expected);
    EXPECT_EQ(codex->calls.size() > before, reads);
    EXPECT_TRUE(store->launchAtLogin()) << "read when the popover opened first";
  }
}

TEST_F(AppDelegateTest, AResetDrainsItsRingUnlessMotionIsReduced) {
  launch();
  for (const bool reduceMotion : {false, true}) {
    desk.looks.reduceMotion = reduceMotion;
    UsageWindow week = five(50, 110);
    week.label = "Weekly";
    read({five(80, 100), week});
    ASSERT_EQ(sweeps(last()), (Sweeps{0.8, 0.5}));
    for (const auto& [wait, left] : {std::pair(100.0, Sweeps{0.5}), std::pair(8.0, Sweeps())}) {
      advance(wait);
      const std::size_t before = desk.shown.size();
      for (int i = 0; i < 200; ++i) {
        loop.advance(Seconds{0.01});
        desk.onChange();  // which holds no frame up
      }
      const Sweeps first = sweeps(desk.shown[before]);
      EXPECT_EQ(first.size() > left.size() && first.back() != 0.8, !reduceMotion) << wait;
      EXPECT_EQ(desk.shown.size() > before + 10, !reduceMotion) << "frames that look alike are one";
      EXPECT_EQ(sweeps(last()), left);
    }
    const std::size_t before = desk.shown.size();
    advance(20);
    EXPECT_EQ(desk.shown.size(), before) << "a drain happens once";
  }
}

TEST_F(AppDelegateTest, TheItemKeepsItsWidthAndThePopoverItsCardsUpToDate) {
  store->preferences().setResetScope(ProviderID::codex, MenuBarTextScope::both);
  launch();
  click();
  const auto row = [this] { return std::get<CardRow>(desk.content.cards.front().blocks.front()); };
  ASSERT_EQ(desk.content.cards.size(), 2U);
  EXPECT_EQ(row().value, "80%");
  const double wide = last().mark.size.width;
  read({{.label = "5h", .percent = 7}});
  EXPECT_EQ(row().value, "7%");
  EXPECT_EQ(last().mark.size.width, wide);
  // Hidden in the bar, shown on the card.
  store->preferences().setShowsInMenuBar(ProviderID::codex, false);
  read({five(7, 30)});
  EXPECT_EQ(row().subLabel, "in 1m");
  advance(31);
  EXPECT_EQ(row().subLabel, "") << "time goes by in it";
  loop.setDate(loop.date() + Seconds{86400 - 36});
  EXPECT_EQ(attention.tell(AttentionEvent::clockChange), 1);
  EXPECT_TRUE(row().bar.fill);
  advance(6);
  EXPECT_FALSE(row().bar.fill) << "a day old by now";
  read({five(7, 125)});
  click();
  delegate->showPopover();
  EXPECT_EQ(row().subLabel, "in 2m");
  advance(10);
  EXPECT_EQ(row().subLabel, "in 1m") << "counted from the moment it opened";
  EXPECT_LT(*loop.nextTimer() - loop.now(), Seconds{60});
  desk.close();  // by itself
  EXPECT_LT(last().mark.size.width, wide);
  EXPECT_GT(*loop.nextTimer() - loop.now(), Seconds{60}) << "nothing counts any more";
}

TEST_F(AppDelegateTest, NothingRunsOnAfterTheEnd) {
  const auto terminate = [this] { delegate->applicationWillTerminate(); };
  for (const auto& [refusals, until, end] :
       std::vector<std::tuple<int, double, std::function<void()>>>{
           {100, 0, terminate},
           {0, 0, terminate},
           {0, 0, [this] { delegate.reset(); }},
           {0, 100.5, terminate}}) {
    desk.refusals = refusals;
    show({five(80, 100)});
    launch();
    advance(until);  // a retry, a repaint, a drain is due next
    end();
    settle();
    EXPECT_FALSE(store->engineRuns() || desk.onClosed || desk.onChange);
    EXPECT_EQ(attention.tell(AttentionEvent::clockChange), 0);
    const auto before = std::tuple(desk.shown.size(), codex->calls.size(), log.lines.size());
    advance(400);
    EXPECT_EQ(std::tuple(desk.shown.size(), codex->calls.size(), log.lines.size()), before);
    store->start();
    delegate.reset();
    EXPECT_TRUE(store->engineRuns()) << "ended once";
  }
}

TEST_F(AppDelegateTest, AnswersTheUsersOtherProcesses) {
  struct Door final : InstanceDoor {
    void tellFollowers() override { ++redraws; }
    int redraws = 0;
  } door;
  launch();
  const InstanceAnswers answers({.store = *store,
                                 .delegate = *delegate,
                                 .application = desk,
                                 .loop = loop,
                                 .localTime = times,
                                 .door = door,
                                 .texts = macTexts});
  for (const auto& [request, answer] : {std::pair("status short", "Codex 80%\n"),
                                        {"status lines", "Codex: 5h 80% used, updated just now\n"},
                                        {"status", ""},
                                        {"status xml", ""},
                                        {"reopen", ""}}) {
    EXPECT_EQ(door.onRequest(request), answer);
  }
  const InstanceDoor::News news = door.onFollow("short");
  EXPECT_FALSE(door.onFollow("xml"));
  EXPECT_EQ(news(), "Codex 80%\n");
  EXPECT_EQ(door.redraws, 0);
  read({five(81, 100)});
  EXPECT_GT(door.redraws, 0);
  EXPECT_EQ(news(), "Codex 81%\n");
  EXPECT_EQ(news(), "");

  show({five(82, 100)});
  advance(20);
  desk.journal.clear();
  EXPECT_EQ(door.onRequest("open"), openedAnswer);
  settle();
  EXPECT_EQ(door.onRequest("status short"), "Codex 82%\n") << "the user looks";
  EXPECT_EQ(door.onRequest("quit"), "");
  EXPECT_EQ(desk.journal, (Journal{"activate", "popover", "quit"}));
}

}  // namespace
}  // namespace marigold
