#include "macos/MacMenu.h"

#include "macos/MacAction.h"
#include "macos/MacText.h"

/// The target of one item: says before the menu opens whether it can be chosen.
@interface MGMenuTarget : MGAction <NSMenuItemValidation>
@property(nonatomic) BOOL enabled;
@end

@implementation MGMenuTarget
- (BOOL)validateMenuItem:(NSMenuItem*)item {
  (void)item;
  return self.enabled;
}
@end

namespace marigold {

namespace {

NSMenuItem* makeItem(const MenuItem& item) {
  if (item.kind == MenuItem::Kind::separator) {
    return NSMenuItem.separatorItem;
  }
  const bool opens = item.kind == MenuItem::Kind::submenu;
  NSMenuItem* const made = [[NSMenuItem alloc] initWithTitle:toMac(item.title)
                                                      action:opens ? nil : @selector(perform:)
                                               keyEquivalent:@""];
  made.toolTip = item.tooltip.empty() ? nil : toMac(item.tooltip);
  made.state = item.checked ? NSControlStateValueOn : NSControlStateValueOff;
  made.indentationLevel = item.indent;
  if (opens) {
    made.submenu = makeMenu(item.items);
    return made;
  }
  MGMenuTarget* const target = [[MGMenuTarget alloc] initWithWork:item.action];
  target.enabled = item.enabled;
  made.target = target;
  made.representedObject = target;  // an item does not keep its target
  return made;
}

}  // namespace

NSMenu* makeMenu(const std::vector<MenuItem>& items) {
  NSMenu* const menu = [[NSMenu alloc] initWithTitle:@""];
  for (const MenuItem& item : items) {
    [menu addItem:makeItem(item)];
  }
  return menu;
}

}  // namespace marigold
