// NSPopover, which GNUstep has but never shows. A borderless window beside the view that it points
// at; no arrow. `animates` only puts the end off to the next turn of the loop. Behaviours other
// than application-defined, detaching and full-size content are not kept.
#import "Extras.h"

@interface MGPopoverWindow : NSPanel
@end
@implementation MGPopoverWindow
- (BOOL)canBecomeKeyWindow {
  return YES;
}
@end

@implementation NSPopover (Completion)
- (void)tell:(NSString*)name delegate:(SEL)selector {
  NSNotification* note = [NSNotification notificationWithName:name object:self];
  if ([[self delegate] respondsToSelector:selector]) {
    [[self delegate] performSelector:selector withObject:note];
  }
  [[NSNotificationCenter defaultCenter] postNotification:note];
}
- (NSWindow*)window {
  return [extras(self) objectForKey:@"window"];
}
- (BOOL)isShown {
  return [self window] != nil;
}
- (void)setContentSize:(NSSize)size {
  [extras(self) setObject:[NSValue valueWithSize:size] forKey:@"size"];
  [[self window] setContentSize:size];
}
- (NSSize)contentSize {
  NSValue* set = [extras(self) objectForKey:@"size"];
  return set != nil ? [set sizeValue] : [[[self contentViewController] view] frame].size;
}
- (void)showRelativeToRect:(NSRect)rect ofView:(NSView*)view preferredEdge:(NSRectEdge)edge {
  if ([[self contentViewController] view] == nil) {
    [NSException raise:NSInternalInconsistencyException format:@"a popover without content"];
  }
  if ([view window] == nil) {
    [NSException raise:NSInvalidArgumentException format:@"a popover on no window"];
  }
  const NSRect inWindow = [view convertRect:NSIsEmptyRect(rect) ? [view bounds] : rect toView:nil];
  const NSRect from = {[[view window] convertBaseToScreen:inWindow.origin], inWindow.size};
  const NSRect screen = [[[view window] screen] visibleFrame];
  const NSSize size = [self contentSize];
  if ([view isFlipped] && (edge == NSMinYEdge || edge == NSMaxYEdge)) {
    edge = edge == NSMinYEdge ? NSMaxYEdge : NSMinYEdge;
  }
  // The opposite edge where there is no room at the preferred one.
  if (edge == NSMaxYEdge && NSMaxY(from) + size.height > NSMaxY(screen)) {
    edge = NSMinYEdge;
  } else if (edge == NSMinYEdge && NSMinY(from) - size.height < NSMinY(screen)) {
    edge = NSMaxYEdge;
  }
  NSPoint at = NSMakePoint(NSMidX(from) - size.width / 2, NSMidY(from) - size.height / 2);
  if (edge == NSMinYEdge) {
    at.y = NSMinY(from) - size.height;
  }
  if (edge == NSMaxYEdge) {
    at.y = NSMaxY(from);
  }
  if (edge == NSMinXEdge) {
    at.x = NSMinX(from) - size.width;
  }
  if (edge == NSMaxXEdge) {
    at.x = NSMaxX(from);
  }
  at.x = MAX(NSMinX(screen), MIN(at.x, NSMaxX(screen) - size.width));
  NSWindow* window = [self window];
  if (window != nil) {  // shown already: it only moves
    [window setFrameOrigin:at];
    return;
  }
  [self tell:NSPopoverWillShowNotification delegate:@selector(popoverWillShow:)];
  window =
      [[[MGPopoverWindow alloc] initWithContentRect:NSMakeRect(at.x, at.y, size.width, size.height)
                                          styleMask:NSBorderlessWindowMask
                                            backing:NSBackingStoreBuffered
                                              defer:NO] autorelease];
  [window setReleasedWhenClosed:NO];
  [(NSPanel*)window setBecomesKeyOnlyIfNeeded:NO];
  [window setHidesOnDeactivate:NO];
  [window setLevel:NSPopUpMenuWindowLevel];
  [extras(self) setObject:window forKey:@"window"];
  NSView* content = [[self contentViewController] view];
  [window setContentView:content];
  [window setNextResponder:[self contentViewController]];
  [window makeFirstResponder:content];
  [window makeKeyAndOrderFront:nil];
  [self tell:NSPopoverDidShowNotification delegate:@selector(popoverDidShow:)];
}
- (void)ended {
  [self tell:NSPopoverDidCloseNotification delegate:@selector(popoverDidClose:)];
}
- (void)close {
  NSWindow* window = [[[self window] retain] autorelease];
  if (window == nil) {
    return;
  }
  [self tell:NSPopoverWillCloseNotification delegate:@selector(popoverWillClose:)];
  [extras(self) removeObjectForKey:@"window"];
  [window setContentView:[[[NSView alloc] init] autorelease]];
  [window close];
  if ([self animates]) {
    [self performSelectorOnMainThread:@selector(ended) withObject:nil waitUntilDone:NO];
  } else {
    [self ended];
  }
}
- (void)performClose:(id)sender {
  if (![[self delegate] respondsToSelector:@selector(popoverShouldClose:)] ||
      [[self delegate] popoverShouldClose:self]) {
    [self close];
  }
}
@end
