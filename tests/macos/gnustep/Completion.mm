// What AppKit and Foundation of today have and Debian's GNUstep lacks, as far as main/macos/ uses
// it. Compiled against GNUstep's own headers, without ARC. Each piece keeps the documented
// behaviour or says where it does not.
#import <AppKit/AppKit.h>
#import <AppKit/NSAccessibility.h>

#import "Extras.h"

#define STORED(TYPE, getter, setter)                               \
  -(TYPE)getter {                                                  \
    return [extras(self) objectForKey:@ #getter];                  \
  }                                                                \
  -(void)setter : (TYPE)value {                                    \
    value != nil ? [extras(self) setObject:value forKey:@ #getter] \
                 : [extras(self) removeObjectForKey:@ #getter];    \
  }

@interface MGFlippedView : NSView
@end
@implementation MGFlippedView
- (BOOL)isFlipped {
  return YES;
}
@end

@implementation NSImage (Completion)
// Drawn once, at one pixel a point.
+ (instancetype)imageWithSize:(NSSize)size
                      flipped:(BOOL)flipped
               drawingHandler:(BOOL (^)(NSRect))draw {
  const NSRect bounds = NSMakeRect(0, 0, ceil(size.width), ceil(size.height));
  NSWindow* window = [[[NSWindow alloc] initWithContentRect:bounds
                                                  styleMask:NSBorderlessWindowMask
                                                    backing:NSBackingStoreBuffered
                                                      defer:NO] autorelease];
  [window setReleasedWhenClosed:NO];
  [window setOpaque:NO];
  [window setBackgroundColor:[NSColor clearColor]];
  NSView* view =
      [[[flipped ? [MGFlippedView class] : [NSView class] alloc] initWithFrame:bounds] autorelease];
  [window setContentView:view];
  [view lockFocus];
  draw(bounds);
  NSBitmapImageRep* rep = [[[NSBitmapImageRep alloc] initWithFocusedViewRect:bounds] autorelease];
  [view unlockFocus];
  NSImage* image = [[[self alloc] initWithSize:size] autorelease];
  [image addRepresentation:rep];
  return image;
}
- (void)setTemplate:(BOOL)isTemplate {
}
STORED(NSString*, accessibilityDescription, setAccessibilityDescription)
@end

@implementation NSFont (Completion)
- (CGFloat)capHeight {
  return [self pointSize] * 0.729;
}  // DejaVu Sans; there it is 0
+ (NSFont*)systemFontOfSize:(CGFloat)size weight:(CGFloat)weight {
  return weight > 0.25 ? [NSFont boldSystemFontOfSize:size] : [NSFont systemFontOfSize:size];
}
// The interface font here, DejaVu Sans, has digits of one width.
+ (NSFont*)monospacedDigitSystemFontOfSize:(CGFloat)size weight:(CGFloat)weight {
  return [self systemFontOfSize:size weight:weight];
}
@end

@implementation NSView (Completion)
STORED(NSString*, accessibilityLabel, setAccessibilityLabel)
STORED(id, accessibilityValue, setAccessibilityValue)
STORED(NSString*, accessibilityRole, setAccessibilityRole)
@end

// There Escape is bound to nothing.
@implementation NSResponder (Completion)
- (void)interpretKeyEvents:(NSArray*)events {
  for (NSEvent* event in events) {
    if ([[event characters] isEqual:@"\e"]) {
      [self doCommandBySelector:@selector(cancelOperation:)];
    } else {
      [[NSInputManager currentInputManager] handleKeyboardEvents:@[ event ] client:self];
    }
  }
}
@end

@implementation NSTextField (Completion)
+ (instancetype)labelWithString:(NSString*)text {
  NSTextField* label = [[[self alloc] initWithFrame:NSZeroRect] autorelease];
  [label setStringValue:text];
  [label setEditable:NO];
  [label setSelectable:NO];
  [label setBezeled:NO];
  [label setDrawsBackground:NO];
  [label sizeToFit];
  return label;
}
@end

// There +systemStatusBar is nil. Here an item is a small window at the screen's top right corner.
@implementation NSStatusBar (Completion)
+ (NSStatusBar*)systemStatusBar {
  static NSStatusBar* bar = [[NSStatusBar alloc] init];
  return bar;
}
- (CGFloat)thickness {
  return 24;
}
- (NSStatusItem*)statusItemWithLength:(CGFloat)length {
  NSStatusItem* item = [[[NSStatusItem alloc] init] autorelease];
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
  return item;
}
- (void)removeStatusItem:(NSStatusItem*)item {
  [[extras(item) objectForKey:@"window"] close];
}
@end
@implementation NSStatusItem (Completion)
- (NSStatusBarButton*)button {
  return [extras(self) objectForKey:@"button"];
}
@end

// Its own starts a daemon and waits for it. Only what is completed here can be used.
@implementation NSWorkspace (Completion)
+ (NSWorkspace*)sharedWorkspace {
  static NSWorkspace* workspace = NSAllocateObject(self, 0, NSDefaultMallocZone());
  return workspace;
}
- (NSNotificationCenter*)notificationCenter {
  static NSNotificationCenter* center = [[NSNotificationCenter alloc] init];
  return center;
}
@end

// A status bar's button tells both mouse buttons and is as wide as its picture.
@implementation NSStatusBarButton (Completion)
- (void)setImage:(NSImage*)image {
  [super setImage:image];
  const NSSize size = NSMakeSize([image size].width + 8, [[NSStatusBar systemStatusBar] thickness]);
  const NSRect screen = [[NSScreen mainScreen] frame];
  [[self window] setFrame:NSMakeRect(NSMaxX(screen) - size.width, NSMaxY(screen) - size.height,
                                     size.width, size.height)
                  display:YES];
}
- (void)rightMouseUp:(NSEvent*)event {
  [self sendAction:[self action] to:[self target]];
}
- (void)rightMouseDown:(NSEvent*)event {
}
@end

@implementation NSMenu (Completion)
- (BOOL)popUpMenuPositioningItem:(NSMenuItem*)item
                      atLocation:(NSPoint)location
                          inView:(NSView*)view {
  const NSPoint inWindow = [view convertPoint:location toView:nil];
  NSEvent* event = [NSEvent mouseEventWithType:NSRightMouseDown
                                      location:inWindow
                                 modifierFlags:0
                                     timestamp:0
                                  windowNumber:[[view window] windowNumber]
                                       context:nil
                                   eventNumber:0
                                    clickCount:1
                                      pressure:0];
  [NSMenu popUpContextMenu:self withEvent:event forView:view];
  return YES;
}
@end

@implementation NSApplication (Completion)
- (BOOL)setActivationPolicy:(NSInteger)policy {
  return YES;
}
@end

// There a process hears of what others store when it asks for it.
@implementation NSUserDefaults (Completion)
+ (void)load {
  method_exchangeImplementations(class_getInstanceMethod(self, @selector(persistentDomainForName:)),
                                 class_getInstanceMethod(self, @selector(asStored:)));
}
- (NSDictionary*)asStored:(NSString*)domain {
  [self synchronize];
  return [self asStored:domain];  // the two are exchanged
}
@end

// There the main queue's operations run on a thread of their own.
@interface MGMainQueue : NSOperationQueue
@end
@implementation MGMainQueue
- (void)addOperation:(NSOperation*)operation {
  [operation performSelectorOnMainThread:@selector(start)
                              withObject:nil
                           waitUntilDone:NO
                                   modes:@[
                                     NSDefaultRunLoopMode, NSEventTrackingRunLoopMode,
                                     NSModalPanelRunLoopMode
                                   ]];
}
- (void)addOperationWithBlock:(void (^)(void))block {
  [self addOperation:[NSBlockOperation blockOperationWithBlock:block]];
}
@end
@implementation NSOperationQueue (Completion)
+ (id)mainQueue {
  static NSOperationQueue* queue = [[MGMainQueue alloc] init];
  return queue;
}
@end

@implementation NSDateFormatter (Completion)
- (void)setLocalizedDateFormatFromTemplate:(NSString*)pattern {
  [self setDateFormat:[NSDateFormatter dateFormatFromTemplate:pattern
                                                      options:0
                                                       locale:[self locale]]];
}
@end

@implementation NSHTTPURLResponse (Completion)
- (NSString*)valueForHTTPHeaderField:(NSString*)name {
  for (NSString* each in [self allHeaderFields]) {
    if ([each caseInsensitiveCompare:name] == NSOrderedSame) {
      return [[self allHeaderFields] objectForKey:each];
    }
  }
  return nil;
}
@end

@implementation NSFileManager (Completion)
- (NSArray*)URLsForDirectory:(NSSearchPathDirectory)directory
                   inDomains:(NSSearchPathDomainMask)domains {
  NSMutableArray* found = [NSMutableArray array];
  for (NSString* path in NSSearchPathForDirectoriesInDomains(directory, domains, YES)) {
    [found addObject:[NSURL fileURLWithPath:path isDirectory:YES]];
  }
  return found;
}
@end

// There it is the user's entry that says it.
extern "C" NSString* NSHomeDirectory(void) {
  return [[[NSProcessInfo processInfo] environment] objectForKey:@"HOME"];
}

// Constants that are macros or static there. Under other names here, for this file sees those too.
static const NSRect zero = {};
extern "C" {
extern const NSRect MGZeroRect __asm__("NSZeroRect");
const NSRect MGZeroRect = zero;
extern const NSPoint MGZeroPoint __asm__("NSZeroPoint");
const NSPoint MGZeroPoint = zero.origin;
extern const NSSize MGZeroSize __asm__("NSZeroSize");
const NSSize MGZeroSize = zero.size;
}

// Core Foundation's objects are Foundation's.
extern "C" {
unsigned long CFBooleanGetTypeID(void) {
  return (unsigned long)[[NSNumber numberWithBool:YES] class];
}
unsigned long CFGetTypeID(void* object) {
  return (unsigned long)[(id)object class];
}
void* CFRetain(void* object) {
  return [(id)object retain];
}
void CFRelease(void* object) {
  [(id)object release];
}
}
