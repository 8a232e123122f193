// What AppKit and Foundation of today have and Debian's GNUstep lacks, as far as main/macos/ uses
// it. Compiled against GNUstep's own headers, without ARC. Each piece keeps the documented
// behaviour or says where it does not.
#import <AppKit/AppKit.h>
#import <AppKit/NSAccessibility.h>

#import "Extras.h"

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
  // Once more later, as the Mac does whenever it shows the picture anew.
  void (^again)(void) = ^{
    [window setContentView:view];  // which it keeps until then
    [view lockFocus];
    draw(bounds);
    [view unlockFocus];
  };
  [NSTimer scheduledTimerWithTimeInterval:0
                                  repeats:NO
                                    block:^(NSTimer*) {
                                      again();
                                    }];
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
STORED_FLAG(accessibilityDisplayShouldIncreaseContrast, setIncreaseContrast)
STORED_FLAG(accessibilityDisplayShouldReduceMotion, setReduceMotion)
@end

@implementation NSApplication (Completion)
- (BOOL)setActivationPolicy:(NSInteger)policy {
  return YES;
}
- (NSInteger)userInterfaceLayoutDirection {
  return 0;
}
- (NSAppearance*)effectiveAppearance {
  NSAppearance* own = [extras(self) objectForKey:@"appearance"];
  return own != nil ? own : [NSAppearance appearanceNamed:@"NSAppearanceNameAqua"];
}
- (void)setAppearance:(NSAppearance*)appearance {
  [self willChangeValueForKey:@"effectiveAppearance"];
  [extras(self) setObject:appearance forKey:@"appearance"];
  [self didChangeValueForKey:@"effectiveAppearance"];
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
