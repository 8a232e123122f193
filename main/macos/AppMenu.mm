#include "macos/AppMenu.h"

#include <array>
#include <span>

namespace marigold {

namespace {

/// One command of a menu, for whoever in the responder chain knows it.
struct EditCommand {
  NSString* title;  ///< nil for a separator
  NSString* action = @"";
  NSString* key = @"";
  NSEventModifierFlags modifiers = NSEventModifierFlagCommand;
};

void addMenu(NSMenu* bar, NSString* title, std::span<const EditCommand> commands) {
  NSMenu* const menu = [[NSMenu alloc] initWithTitle:title];
  for (const EditCommand& command : commands) {
    if (command.title == nil) {
      [menu addItem:NSMenuItem.separatorItem];
      continue;
    }
    NSMenuItem* const item = [menu addItemWithTitle:command.title
                                             action:NSSelectorFromString(command.action)
                                      keyEquivalent:command.key];
    item.keyEquivalentModifierMask = command.modifiers;
  }
  NSMenuItem* const place = [bar addItemWithTitle:title action:nil keyEquivalent:@""];
  place.submenu = menu;
}

}  // namespace

NSMenu* AppMenu::makeMainMenu() {
  constexpr NSEventModifierFlags withOption =
      NSEventModifierFlagCommand | NSEventModifierFlagOption;
  constexpr NSEventModifierFlags withShift = NSEventModifierFlagCommand | NSEventModifierFlagShift;
  const std::array<EditCommand, 5> application{
      {{@"Hide Marigold", @"hide:", @"h"},
       {@"Hide Others", @"hideOtherApplications:", @"h", withOption},
       {@"Show All", @"unhideAllApplications:"},
       {nil},
       {@"Quit Marigold", @"terminate:", @"q"}}};
  const std::array<EditCommand, 8> edit{{{@"Undo", @"undo:", @"z"},
                                         {@"Redo", @"redo:", @"z", withShift},
                                         {nil},
                                         {@"Cut", @"cut:", @"x"},
                                         {@"Copy", @"copy:", @"c"},
                                         {@"Paste", @"paste:", @"v"},
                                         {@"Delete", @"delete:"},
                                         {@"Select All", @"selectAll:", @"a"}}};
  const std::array<EditCommand, 1> window{{{@"Close", @"performClose:", @"w"}}};
  NSMenu* const bar = [[NSMenu alloc] initWithTitle:@""];
  addMenu(bar, @"Marigold", application);
  addMenu(bar, @"Edit", edit);
  addMenu(bar, @"Window", window);
  return bar;
}

}  // namespace marigold
