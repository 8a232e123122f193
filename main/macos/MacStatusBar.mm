#include "macos/MacStatusBar.h"

#include <algorithm>
#include <utility>

#import "macos/MacAction.h"
#include "macos/MacMenu.h"
#include "macos/MacObservation.h"
#include "macos/MacPainter.h"
#include "macos/MacText.h"

namespace marigold {

namespace {

/// The item, and with it its place in the bar.
class MacStatusItem final : public StatusItem {
 public:
  explicit MacStatusItem(NSStatusItem* item)
      : item_(item),
        clicked_([[MGAction alloc] initWithWork:[this] { click(); }]),
        turned_([[MGAction alloc] initWithWork:[this] { groundChanged(); }]),
        appearance_(item.button, @"effectiveAppearance", [this] { groundTurns(); }) {
    NSStatusBarButton* const button = item_.button;
    button.imagePosition = NSImageOnly;
    button.target = clicked_;
    button.action = @selector(perform:);
    [button sendActionOn:NSEventMaskLeftMouseUp | NSEventMaskRightMouseUp];
  }
  MacStatusItem(const MacStatusItem&) = delete;
  MacStatusItem& operator=(const MacStatusItem&) = delete;
  ~MacStatusItem() override {
    clicked_.work = {};
    turned_.work = {};
    [NSStatusBar.systemStatusBar removeStatusItem:item_];
  }

  [[nodiscard]] DarkMenuBar ownGround() const override {
    return isDark(item_.button.effectiveAppearance) ? DarkMenuBar::yes : DarkMenuBar::no;
  }

  void show(const StatusItemContent& content) override {
    NSStatusBarButton* const button = item_.button;
    button.image = imageOf(content.mark, std::max(button.window.backingScaleFactor, 1.0));
    button.title = @"";
    button.toolTip = toMac(content.tooltip);
    button.accessibilityLabel = toMac(content.accessibilityLabel);
    button.accessibilityValue = toMac(content.accessibilityValue);
  }

  // While the item has a menu, a click opens it and does not return before it is closed; without
  // one, the next click is told to us again.
  void openMenu(std::vector<MenuItem> items) override {
    item_.menu = makeMenu(items);
    [item_.button performClick:nil];
    item_.menu = nil;
  }

 private:
  void click() {
    NSEvent* const event = NSApp.currentEvent;
    if (event == nil || !onClick) {
      return;
    }
    const bool right =
        event.type == NSEventTypeRightMouseUp || event.type == NSEventTypeRightMouseDown;
    onClick({.button = right ? StatusItemClick::Button::right : StatusItemClick::Button::left,
             .controlHeld = (event.modifierFlags & NSEventModifierFlagControl) != 0});
  }

  // With several screens the system turns it to and fro while it draws the item for each bar: it is
  // looked at in the next turn of the run loop, when it is the item's own again.
  void groundTurns() {
    if (!std::exchange(turns_, true)) {
      [turned_ performSelectorOnMainThread:@selector(perform:) withObject:nil waitUntilDone:NO];
    }
  }

  void groundChanged() {
    turns_ = false;
    if (onGroundChange) {
      onGroundChange();
    }
  }

  NSStatusItem* const item_;
  MGAction* const clicked_;
  MGAction* const turned_;
  bool turns_ = false;  // which `turned_` is on its way to tell
  const MacObservation appearance_;
};

}  // namespace

std::unique_ptr<StatusItem> MacStatusBar::makeItem() {
  NSStatusItem* const item =
      [NSStatusBar.systemStatusBar statusItemWithLength:NSVariableStatusItemLength];
  current_->button = item.button;
  if (item.button == nil) {
    [NSStatusBar.systemStatusBar removeStatusItem:item];
    return nullptr;
  }
  return std::make_unique<MacStatusItem>(item);
}

NSStatusBarButton* MacStatusBar::button() const {
  return current_->button;
}

bool isDark(NSAppearance* appearance) {
  NSArray<NSAppearanceName>* const kinds = @[ NSAppearanceNameAqua, NSAppearanceNameDarkAqua ];
  return [[appearance bestMatchFromAppearancesWithNames:kinds]
      isEqualToString:NSAppearanceNameDarkAqua];
}

}  // namespace marigold
