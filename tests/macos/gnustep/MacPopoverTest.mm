#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "macos/MacPopover.h"
#include "macos/MacText.h"
#include "macos/gnustep/User.h"

namespace marigold {
namespace {

using test::eventually;
using test::find;

class MacPopoverTest : public testing::Test {
 protected:
  MacPopoverTest() {
    item->show({.mark = {.size = {.width = 40, .height = 18}, .ops = {}}});
    popover.onClosed = [this] { ++closes; };
  }

  NSView* root() const { return NSApp.keyWindow.contentView; }
  void showContent(PopoverContent::Page page = PopoverContent::Page::cards) {
    content.page = page;
    popover.setContent(content);
  }
  void openAndWait() {
    [NSApp activateIgnoringOtherApps:YES];  // as who opens it does
    popover.open();
    ASSERT_TRUE(eventually([&] { return NSApp.keyWindow.visible && popover.isShown(); }));
  }
  SettingsRow row(const std::string& key, decltype(SettingsRow::control) control) {
    return {.key = key,
            .title = key,
            .control = std::move(control),
            .use = Handler(
                [this, key](int choice) { used.push_back(key + " " + std::to_string(choice)); })};
  }

  MacStatusBar bar;
  std::unique_ptr<StatusItem> item = bar.makeItem();
  MacPopover popover{bar};
  PopoverContent content{
      .cards = {{.key = "claude",
                 .title = "Claude",
                 .plan = "Max",
                 .badge = CardBadge{.text = "held"},
                 .blocks = {CardRow{.label = "5h", .value = "42%", .spoken = "5h, 42 percent"},
                            CardButton{.title = "Try Again", .press = Handler([this](int) {
                                                               used.emplace_back("again");
                                                             })},
                            CardDisclosure{.title = "Why", .paragraphs = {"Because."}}}}},
      .refreshNow = Handler([this](int) { used.emplace_back("refresh"); }),
      .showPage = Handler([this](int page) {
        used.push_back("page " + std::to_string(page));
        showContent(static_cast<PopoverContent::Page>(page));
      })};
  std::vector<std::string> used;
  int closes = 0;
};

TEST_F(MacPopoverTest, ClosesOnEscapeAndOutsideClicksAndWatchesOnlyWhileShown) {
  showContent();
  popover.close();
  EXPECT_EQ(closes, 0);
  const auto closesBy = [&](const std::function<void()>& act, int count) {
    openAndWait();
    EXPECT_EQ(NSEvent.monitors, 1);
    popover.open();
    EXPECT_EQ(NSEvent.monitors, 1) << "one, however often it opens";
    act();
    EXPECT_TRUE(eventually([&] { return closes == count; })) << count;
    EXPECT_FALSE(popover.isShown());
    EXPECT_EQ(NSEvent.monitors, 0);
  };
  closesBy([&] { popover.close(); }, 1);
  closesBy([] { test::xdotool(test::clickAt(100, 700)); }, 2);
  closesBy([] { test::xdotool(test::clickAt(100, 700, 3)); }, 3);
  closesBy([] { test::xdotool("key Escape"); }, 4);
  closesBy(
      [] {
        [NSNotificationCenter.defaultCenter
            postNotificationName:NSApplicationDidResignActiveNotification
                          object:NSApp];
      },
      5);
  openAndWait();
  NSWindow* const window = NSApp.keyWindow;
  EXPECT_EQ(NSMaxY(window.frame), NSMinY(bar.button().window.frame)) << "below the item";
  EXPECT_EQ(NSWidth(window.frame), 332);
  test::xdotool(test::clickAt(800, 50) + test::clickAt(100, 700));
  EXPECT_TRUE(eventually([&] { return closes == 6; }));
  test::serve(0.1);
  EXPECT_EQ(closes, 6) << "the click inside was none";
  item.reset();
  popover.open();
  EXPECT_FALSE(popover.isShown()) << "without an item there is no place for it";
}

TEST_F(MacPopoverTest, ShowsCardsAsValuesAndKeepsWhatStaysTheSame) {
  showContent();
  openAndWait();
  NSView* const spoken = find(root(), [](NSView* view) {
    return [view.accessibilityLabel isEqualToString:@"5h, 42 percent"] != NO;
  });
  ASSERT_NE(spoken, nil);
  EXPECT_TRUE([root().appearance.name isEqualToString:NSAppearanceNameAqua])
      << "its own, else it would have the menu bar's";
  EXPECT_TRUE(spoken.accessibilityElement);
  for (NSView* part in spoken.subviews) {
    EXPECT_FALSE(part.accessibilityElement) << "a row is spoken as one";
  }
  const auto button = [this](NSString* identifier) {
    return static_cast<NSButton*>(find(root(), identifier));
  };
  [button(@"button Try Again") performClick:nil];
  EXPECT_EQ(used, std::vector<std::string>{"again"});

  const double before = NSHeight(NSApp.keyWindow.frame);
  const auto isExplained = [this] {
    return find(root(), [](NSView* view) {
             return [view isKindOfClass:NSTextField.class] &&
                    [static_cast<NSTextField*>(view).stringValue isEqualToString:@"Because."];
           }) != nil;
  };
  EXPECT_FALSE(isExplained());
  [button(@"disclosure Why") performClick:nil];
  EXPECT_TRUE(isExplained());
  EXPECT_GT(NSHeight(NSApp.keyWindow.frame), before + 10) << "the window grows with it";

  content.refresh = PopoverContent::Refresh::running;
  NSView* const kept = find(root(), @"button Try Again");
  [NSApp.keyWindow makeFirstResponder:kept];
  showContent();
  EXPECT_FALSE(button(@"refresh").enabled);
  EXPECT_EQ(find(root(), @"button Try Again"), kept);
  content.cards[0].plan = "Pro";
  NSView* const gear = button(@"settings");
  showContent();
  EXPECT_EQ(button(@"settings"), gear);
  EXPECT_NE(find(root(), @"button Try Again"), kept);
  EXPECT_EQ(NSApp.keyWindow.firstResponder, find(root(), @"button Try Again"))
      << "the keyboard stays where it was";
  std::get<CardButton>(content.cards[0].blocks[1]).busy = true;
  showContent();
  EXPECT_FALSE(button(@"button Try Again").enabled);
}

TEST_F(MacPopoverTest, UsesNativeControlsAndShowsWhatBecameOfTheirUse) {
  SettingsRow provider = row("claude", SettingsSwitch{.on = true});
  provider.details = {row("claude.order", SettingsMoves{.canMoveDown = true}),
                      row("claude.window", SettingsChoice{.options = {{"Auto", {}}, {"5h", {}}}})};
  SettingsRow clear =
      row("clear", SettingsButton{.title = "Clear…",
                                  .confirmation = Confirmation{
                                      .question = "Clear?", .confirm = "Yes", .cancel = "No"}});
  content.settings = {
      .title = "Settings",
      .sections = {
          {.title = "A", .rows = {provider}},
          {.title = "B",
           .rows = {
               row("style", SettingsChoice{.kind = SettingsChoice::Kind::segments,
                                           .options = {{"Rings", {}}, {"Pills", {}}}}),
               row("color", SettingsChoice{.kind = SettingsChoice::Kind::colors,
                                           .options = {{"Auto", {}}, {"Teal", Color{.green = 1}}}}),
               clear, row("quit", SettingsButton{}), row("note", SettingsNote{})}}}};
  showContent();
  openAndWait();
  [static_cast<NSButton*>(find(root(), @"settings")) performClick:nil];
  EXPECT_EQ(used, std::vector<std::string>{"page 1"});
  used.clear();

  NSSwitch* const toggle = static_cast<NSSwitch*>(find(root(), @"claude"));
  ASSERT_TRUE([toggle isKindOfClass:NSSwitch.class]);
  EXPECT_EQ(fromMac(toggle.accessibilityLabel), "claude");
  toggle.state = NSControlStateValueOff;
  (void)[toggle sendAction:toggle.action to:toggle.target];
  NSSwitch* const again = static_cast<NSSwitch*>(find(root(), @"claude"));
  EXPECT_EQ(again.state, NSControlStateValueOn) << "the choice was not taken";

  NSPopUpButton* const menu = static_cast<NSPopUpButton*>(find(root(), @"claude.window"));
  ASSERT_TRUE([menu isKindOfClass:NSPopUpButton.class]);
  [menu selectItemAtIndex:1];
  (void)[menu sendAction:menu.action to:menu.target];
  for (NSString* key in @[ @"style", @"color", @"claude.order" ]) {
    NSSegmentedControl* const segments = static_cast<NSSegmentedControl*>(find(root(), key));
    ASSERT_TRUE([segments isKindOfClass:NSSegmentedControl.class]);
    segments.selectedSegment = 1;
    (void)[segments sendAction:segments.action to:segments.target];
  }
  [static_cast<NSButton*>(find(root(), @"quit")) performClick:nil];
  EXPECT_EQ(used, (std::vector<std::string>{"claude 0", "claude.window 1", "style 1", "color 1",
                                            "claude.order 1", "quit 0"}));
  used.clear();

  const auto titled = [this](NSString* title) {
    return static_cast<NSButton*>(find(root(), [title](NSView* view) {
      return [view isKindOfClass:NSButton.class] &&
             [static_cast<NSButton*>(view).title isEqualToString:title];
    }));
  };
  for (NSString* answer in @[ @"No", @"Yes" ]) {
    [titled(@"Clear…") performClick:nil];
    EXPECT_EQ(titled(@"Clear…"), nil) << "the question stands in its place";
    [titled(answer) performClick:nil];
  }
  EXPECT_EQ(used, std::vector<std::string>{"clear 0"});

  [static_cast<NSButton*>(find(root(), @"claude details")) performClick:nil];
  EXPECT_EQ(find(root(), @"claude.window"), nil) << "the first details were open by themselves";
  [titled(@"Clear…") performClick:nil];
  test::xdotool("key Escape");
  EXPECT_TRUE(eventually([&] { return find(root(), @"settings") != nil; })) << "Escape leads back";
  EXPECT_TRUE(popover.isShown());
  EXPECT_EQ(used.back(), "page 0");
  showContent(PopoverContent::Page::settings);
  EXPECT_NE(titled(@"Clear…"), nil) << "what was asked is not asked again";
}

}  // namespace
}  // namespace marigold
