// The bar at the top of the screen, of which GNUstep has the classes and nothing else.
#import "Extras.h"

// There +systemStatusBar is nil. Here an item is a small window at the screen's top right corner,
// one item at a time; lengths, visibility and removal by the user are not kept. -refuseItems: has
// the next items come without a button.
@implementation NSStatusBar (Completion)
static int refused;
static NSMutableArray* items;
+ (NSStatusBar*)systemStatusBar {
  static NSStatusBar* bar = [[NSStatusBar alloc] init];
  return bar;
}
- (CGFloat)thickness {
  return 24;
}
static void (^menuOpened)(NSMenu*);
+ (void)setMenuOpened:(void (^)(NSMenu*))opened {
  [menuOpened release];
  menuOpened = [opened copy];
}
+ (void (^)(NSMenu*))menuOpened {
  return menuOpened;
}
- (void)refuseItems:(int)count {
  refused = count;
}
- (NSArray*)items {
  return [[items copy] autorelease];
}
- (NSStatusItem*)statusItemWithLength:(CGFloat)length {
  NSStatusItem* item = [[[NSStatusItem alloc] init] autorelease];
  if (items == nil) {
    items = [[NSMutableArray alloc] init];
  }
  [items addObject:item];
  [extras(item) setObject:[NSNumber numberWithDouble:length] forKey:@"length"];
  if (refused > 0) {
    --refused;
    return item;
  }
  const NSRect bounds = NSMakeRect(0, 0, 24, [self thickness]);
  NSWindow* window = [[[NSWindow alloc] initWithContentRect:bounds
                                                  styleMask:NSBorderlessWindowMask
                                                    backing:NSBackingStoreBuffered
                                                      defer:NO] autorelease];
  [window setReleasedWhenClosed:NO];
  [window setLevel:NSStatusWindowLevel];
  [window setBackgroundColor:[NSColor darkGrayColor]];
  NSStatusBarButton* button = [[[NSStatusBarButton alloc] initWithFrame:bounds] autorelease];
  [button setBordered:NO];
  [window setContentView:button];
  [window orderFrontRegardless];
  [extras(item) setObject:button forKey:@"button"];
  [extras(item) setObject:window forKey:@"window"];
  [extras(button) setObject:[NSValue valueWithNonretainedObject:item] forKey:@"item"];
  return item;
}
- (void)removeStatusItem:(NSStatusItem*)item {
  [[extras(item) objectForKey:@"window"] setContentView:[[[NSView alloc] init] autorelease]];
  [[extras(item) objectForKey:@"window"] close];
  [items removeObject:item];
}
@end

@implementation NSStatusItem (Completion)
- (NSStatusBarButton*)button {
  return [extras(self) objectForKey:@"button"];
}
- (CGFloat)length {
  return [[extras(self) objectForKey:@"length"] doubleValue];
}
STORED(NSMenu*, menu, setMenu)
@end

// A status bar's button tells the events that it is asked to, is as wide as its picture, and with a
// menu opens that instead.
@implementation NSStatusBarButton (Completion)
- (BOOL)acceptsFirstMouse:(NSEvent*)event {
  return YES;
}
- (NSStatusItem*)item {
  return [[extras(self) objectForKey:@"item"] nonretainedObjectValue];
}
- (void)setImage:(NSImage*)image {
  [super setImage:image];
  const NSSize size = NSMakeSize([image size].width + 8, [[NSStatusBar systemStatusBar] thickness]);
  const NSRect screen = [[NSScreen mainScreen] frame];
  [[self window] setFrame:NSMakeRect(NSMaxX(screen) - size.width, NSMaxY(screen) - size.height,
                                     size.width, size.height)
                  display:YES];
}
- (NSInteger)sendActionOn:(NSInteger)mask {
  [extras(self) setObject:[NSNumber numberWithInteger:mask] forKey:@"mask"];
  return 0;
}
- (void)event:(NSEvent*)event {
  if ([[extras(self) objectForKey:@"mask"] unsignedIntegerValue] & (1UL << [event type])) {
    [self sendAction:[self action] to:[self target]];
  }
}
- (void)mouseDown:(NSEvent*)event {
  [self event:event];
}
- (void)mouseUp:(NSEvent*)event {
  [self event:event];
}
- (void)rightMouseDown:(NSEvent*)event {
  [self event:event];
}
- (void)rightMouseUp:(NSEvent*)event {
  [self event:event];
}
- (void)performClick:(id)sender {
  NSMenu* menu = [[self item] menu];
  if (menu == nil) {
    [self sendAction:[self action] to:[self target]];
    return;
  }
  if ([NSStatusBar menuOpened] != nil) {
    [NSStatusBar menuOpened](menu);
    return;
  }
  NSEvent* event = [NSEvent mouseEventWithType:NSRightMouseDown
                                      location:NSZeroPoint
                                 modifierFlags:0
                                     timestamp:0
                                  windowNumber:[[self window] windowNumber]
                                       context:nil
                                   eventNumber:0
                                    clickCount:1
                                      pressure:0];
  [NSMenu popUpContextMenu:menu withEvent:event forView:self];
}
@end
