#pragma once

#include <cstdlib>
#include <functional>
#include <string>

#import <AppKit/AppKit.h>

// What tests know of the completions, and a user who waits and clicks.

@interface NSStatusBar (ForTests)
@property(readonly) NSArray<NSStatusItem*>* items;
/// The next items come without a button.
- (void)refuseItems:(int)count;
/// What a click on an item with a menu calls instead of opening it; nil has it open.
+ (void)setMenuOpened:(void (^)(NSMenu*))opened;
@end

@interface NSEvent (ForTests)
/// Global monitors that are not removed.
@property(class, readonly) NSInteger monitors;
@end

namespace marigold::test {

/// Serves events until `holds` does, for some seconds at most; whether it then does.
inline bool eventually(const std::function<bool()>& holds, double seconds = 20) {
  NSDate* const end = [NSDate dateWithTimeIntervalSinceNow:seconds];
  while (!holds() && end.timeIntervalSinceNow > 0) {
    @autoreleasepool {
      NSEvent* const event = [NSApp nextEventMatchingMask:NSEventMaskAny
                                                untilDate:[NSDate dateWithTimeIntervalSinceNow:0.02]
                                                   inMode:NSDefaultRunLoopMode
                                                  dequeue:YES];
      if (event != nil) {
        [NSApp sendEvent:event];
      }
    }
  }
  return holds();
}

/// Serves events for so long, for what must not happen.
inline void serve(double seconds) {
  (void)eventually([] { return false; }, seconds);
}

/// What xdotool does waits to be served.
inline void xdotool(const std::string& what) {
  (void)std::system(("xdotool " + what).c_str());
}
/// The same again until it takes effect: the first click on a program that is not active only
/// activates it there. Whether it did.
inline bool xdotoolUntil(const std::string& what, const std::function<bool()>& holds) {
  for (int tries = 0; tries < 10 && !holds(); ++tries) {
    xdotool(what);
    (void)eventually(holds, 2);
  }
  return holds();
}

/// A click at a place of the screen from its top left corner, as words for xdotool.
inline std::string clickAt(double x, double y, int button = 1) {
  const std::string which = std::to_string(button);
  return "mousemove " + std::to_string(static_cast<int>(x)) + " " +
         std::to_string(static_cast<int>(y)) + " sleep 0.05 mousedown " + which +
         " sleep 0.05 mouseup " + which + " ";
}
/// One in the middle of a view.
inline std::string clickOn(NSView* view, int button = 1) {
  const NSRect bounds = view.bounds;
  const NSPoint inWindow = [view convertPoint:NSMakePoint(NSMidX(bounds), NSMidY(bounds))
                                       toView:nil];
  const NSPoint place = [view.window convertPointToScreen:inWindow];
  return clickAt(place.x, NSMaxY(NSScreen.mainScreen.frame) - place.y, button);
}

/// The first view below `root` for which `holds` does.
inline NSView* find(NSView* root, const std::function<bool(NSView*)>& holds) {
  for (NSView* view in root.subviews) {
    NSView* const found = holds(view) ? view : find(view, holds);
    if (found != nil) {
      return found;
    }
  }
  return nil;
}
inline NSView* find(NSView* root, NSString* identifier) {
  return find(root,
              [&](NSView* view) { return [view.identifier isEqualToString:identifier] != NO; });
}

}  // namespace marigold::test
