#include "macos/MacViews.h"

#include <utility>

#include <objc/runtime.h>

#import "macos/MacAction.h"
#include "macos/MacPainter.h"
#include "macos/MacText.h"
#include "popover/PopoverMetrics.h"

@implementation MGView
- (BOOL)isFlipped {
  return YES;
}
- (void)drawRect:(NSRect)dirtyRect {
  (void)dirtyRect;
  if (_draw) {
    _draw();
  }
}
@end

namespace marigold {

NSTextField* makeLabel(const std::string& text, const Ink& ink, double width) {
  NSTextField* const label = width > 0 ? [NSTextField wrappingLabelWithString:toMac(text)]
                                       : [NSTextField labelWithString:toMac(text)];
  label.font = toMac(FontStyle{.size = metrics::fontSize * ink.size, .weight = ink.weight});
  label.textColor = toMac(ink.color);
  label.selectable = NO;
  label.preferredMaxLayoutWidth = width;
  const NSSize size = label.intrinsicContentSize;
  [label setFrameSize:NSMakeSize(width > 0 ? width : size.width, size.height)];
  return label;
}

NSButton* makeSymbolButton(NSString* symbol, const std::string& name, std::function<void()> press) {
  NSImage* const image = [NSImage imageWithSystemSymbolName:symbol
                                   accessibilityDescription:toMac(name)];
  NSButton* const button = [NSButton buttonWithImage:image target:nil action:nil];
  constexpr double side = 28;
  button.bordered = NO;
  button.toolTip = toMac(name);
  button.accessibilityLabel = toMac(name);
  [button setFrameSize:NSMakeSize(side, side)];
  onUse(button, std::move(press));
  return button;
}

NSButton* makeTitleButton(const std::string& title, std::function<void()> press) {
  NSButton* const button = [NSButton buttonWithTitle:toMac(title) target:nil action:nil];
  [button sizeToFit];
  onUse(button, std::move(press));
  return button;
}

void onUse(NSControl* control, std::function<void()> use) {
  static char key = 0;
  MGAction* const action = [[MGAction alloc] initWithWork:std::move(use)];
  objc_setAssociatedObject(control, &key, action, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
  control.target = action;
  control.action = @selector(perform:);
}

void speakAs(NSView* view, NSAccessibilityRole role, const std::string& label) {
  view.accessibilityElement = YES;
  view.accessibilityRole = role;
  view.accessibilityLabel = toMac(label);
}

void place(NSView* view, NSView* parent, double x, double y) {
  const bool mirrored =
      NSApp.userInterfaceLayoutDirection == NSUserInterfaceLayoutDirectionRightToLeft;
  const double left = mirrored ? NSWidth(parent.bounds) - x - NSWidth(view.frame) : x;
  [view setFrameOrigin:NSMakePoint(left, y)];
  [parent addSubview:view];
}

void drawPanel(NSView* view, double radius, const Color& ground, const Color& edge) {
  const NSSize size = view.bounds.size;
  Drawing panel{.size = {.width = size.width, .height = size.height}};
  panel.add(FillRoundedRect{.size = panel.size, .cornerRadius = radius, .color = ground});
  panel.add(StrokeRoundedRect{.origin = {.x = 0.5, .y = 0.5},
                              .size = {.width = size.width - 1, .height = size.height - 1},
                              .cornerRadius = radius - 0.5,
                              .color = edge});
  paint(panel, 1);
}

}  // namespace marigold
