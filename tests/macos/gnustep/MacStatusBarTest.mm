#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "macos/MacAppearance.h"
#include "macos/MacStatusBar.h"
#include "macos/MacText.h"
#include "macos/gnustep/User.h"

namespace marigold {
namespace {

using test::eventually;

StatusItemContent content(const std::string& tooltip) {
  return {.mark = {.size = {.width = 40, .height = 18}, .ops = {}},
          .tooltip = tooltip,
          .accessibilityLabel = "Marigold",
          .accessibilityValue = "42 percent"};
}

TEST(MacStatusBar, ShowsOneItemAndTellsBothClicks) {
  MacStatusBar bar;
  NSStatusBar* const system = NSStatusBar.systemStatusBar;
  [system refuseItems:1];
  EXPECT_EQ(bar.makeItem(), nullptr);
  EXPECT_EQ(bar.button(), nil);
  EXPECT_EQ(system.items.count, 0U) << "what has no button is given back";

  auto item = bar.makeItem();
  ASSERT_NE(item, nullptr);
  NSStatusBarButton* const button = bar.button();
  EXPECT_EQ(system.items.firstObject.length, NSVariableStatusItemLength);
  item->show(content("one\ntwo"));
  EXPECT_EQ(button.imagePosition, NSImageOnly);
  EXPECT_EQ(button.image.size.width, 40);
  EXPECT_EQ(button.image.size.height, 18);
  EXPECT_EQ(fromMac(button.toolTip), "one\ntwo");
  EXPECT_EQ(fromMac(button.accessibilityLabel), "Marigold");
  EXPECT_EQ(fromMac(button.accessibilityValue), "42 percent");

  std::string told;
  item->onClick = [&](const StatusItemClick& click) {
    told += click.button == StatusItemClick::Button::left ? 'l' : 'r';
    told += click.controlHeld ? "^" : "";
  };
  EXPECT_TRUE(test::xdotoolUntil(test::clickOn(button), [&] { return !told.empty(); }));
  for (const int mouse : {3, 1}) {
    test::xdotool(test::clickOn(button, mouse));
    EXPECT_TRUE(eventually([&, before = told] { return told != before; }));
  }
  test::xdotool("keydown ctrl sleep 0.1 mousedown 1 sleep 0.05 mouseup 1 sleep 0.1 keyup ctrl");
  EXPECT_TRUE(eventually([&] { return told.size() > 3; }));
  EXPECT_EQ(told, "lrll^");

  int grounds = 0;
  item->onGroundChange = [&] { ++grounds; };
  EXPECT_EQ(item->ownGround(), DarkMenuBar::no);
  button.appearance = [NSAppearance appearanceNamed:NSAppearanceNameDarkAqua];
  EXPECT_EQ(item->ownGround(), DarkMenuBar::yes);
  button.appearance = [NSAppearance appearanceNamed:NSAppearanceNameAqua];
  EXPECT_EQ(grounds, 0) << "in the middle of drawing nothing is drawn anew";
  EXPECT_TRUE(eventually([&] { return grounds == 1; }));
  button.appearance = [NSAppearance appearanceNamed:NSAppearanceNameDarkAqua];
  item.reset();
  EXPECT_EQ(system.items.count, 0U);
  button.appearance = [NSAppearance appearanceNamed:NSAppearanceNameAqua];
  test::serve(0.1);
  EXPECT_EQ(grounds, 1) << "nobody is told any more";
}

TEST(MacStatusBar, HasTheMenuOnlyWhileItIsOpen) {
  MacStatusBar bar;
  const auto item = bar.makeItem();
  int clicks = 0;
  std::string chosen;
  item->onClick = [&](const StatusItemClick& /*click*/) { ++clicks; };
  NSStatusItem* const shown = NSStatusBar.systemStatusBar.items.firstObject;
  __block std::vector<std::string> rows;
  [NSStatusBar setMenuOpened:^(NSMenu* menu) {
    EXPECT_EQ(shown.menu, menu);
    [menu update];  // which validates
    for (NSMenuItem* entry in menu.itemArray) {
      rows.push_back(
          entry.isSeparatorItem
              ? "-"
              : std::string(static_cast<std::size_t>(entry.indentationLevel), ' ') +
                    fromMac(entry.title) + (entry.state == NSControlStateValueOn ? " on" : "") +
                    (entry.enabled ? "" : " disabled") + fromMac(entry.toolTip) +
                    (entry.hasSubmenu ? " >" + fromMac([entry.submenu itemAtIndex:0].title) : ""));
      if (!entry.hasSubmenu && entry.enabled) {
        (void)[NSApp sendAction:entry.action to:entry.target from:entry];
      }
    }
  }];
  item->openMenu({{.title = "Refresh", .action = [&] { chosen += 'r'; }},
                  {.kind = MenuItem::Kind::submenu,
                   .title = "Show",
                   .items = {{.kind = MenuItem::Kind::checkbox, .title = "Claude"}}},
                  MenuItem::separator(),
                  {.title = "Heading", .enabled = false, .action = [&] { chosen += '!'; }},
                  {.kind = MenuItem::Kind::radio,
                   .title = "Both",
                   .tooltip = " (tip)",
                   .checked = true,
                   .indent = 1,
                   .action = [&] { chosen += 'b'; }}});
  [NSStatusBar setMenuOpened:nil];
  EXPECT_EQ(rows, (std::vector<std::string>{"Refresh", "Show >Claude", "-", "Heading disabled",
                                            " Both on (tip)"}));
  EXPECT_EQ(chosen, "rb");
  EXPECT_EQ(shown.menu, nil);
  [bar.button() performClick:nil];
  EXPECT_EQ(clicks, 1) << "the next click is told again";
}

TEST(MacAppearance, FollowsTheDisplayOptionsAndTheWindows) {
  MacAppearance appearance;
  int changes = 0;
  appearance.onChange = [&] { ++changes; };
  EXPECT_EQ(appearance.settings(), AppearanceSettings());
  NSWorkspace* const workspace = NSWorkspace.sharedWorkspace;
  for (NSString* option in @[ @"increaseContrast", @"reduceMotion" ]) {
    [workspace setValue:@YES forKey:option];
    [workspace.notificationCenter
        postNotificationName:NSWorkspaceAccessibilityDisplayOptionsDidChangeNotification
                      object:nil];
  }
  NSApp.appearance = [NSAppearance appearanceNamed:NSAppearanceNameDarkAqua];
  EXPECT_EQ(changes, 3);
  EXPECT_EQ(
      appearance.settings(),
      (AppearanceSettings{.increaseContrast = true, .reduceMotion = true, .darkWindows = true}));
  NSApp.appearance = [NSAppearance appearanceNamed:NSAppearanceNameAqua];
  for (NSString* option in @[ @"increaseContrast", @"reduceMotion" ]) {
    [workspace setValue:@NO forKey:option];
  }
}

}  // namespace
}  // namespace marigold
