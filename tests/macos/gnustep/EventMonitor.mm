// Global event monitors, for mouse buttons: the server's raw events outside of our own windows, on
// a connection of our own. As on the Mac the event has no window and its location is the screen's.
// Local monitors and other kinds of events are not kept.
#import <AppKit/AppKit.h>
#import <GNUstepGUI/GSDisplayServer.h>
#include <X11/Xlib.h>
#include <X11/extensions/XI2.h>

extern "C" {  // of libXi, whose headers are not needed for more
typedef struct {
  int device, length;
  unsigned char* mask;
} XIEventMask;
typedef struct {
  int type;
  unsigned long serial;
  int sent;
  Display* display;
  int extension, event;
  Time time;
  int device, source, button;
} XIRawEventStart;
int XISelectEvents(Display*, Window, XIEventMask*, int);
int XIQueryVersion(Display*, int*, int*);
}

@interface MGEventMonitor : NSObject <RunLoopEvents>
@end
@implementation MGEventMonitor {
  Display* _display;
  int _extension;
  unsigned long long _mask;
  void (^_block)(NSEvent*);
}
- (void)forModes:(SEL)selector {
  for (NSString* mode in
       @[ NSDefaultRunLoopMode, NSEventTrackingRunLoopMode, NSModalPanelRunLoopMode ]) {
    void* descriptor = (void*)(long)ConnectionNumber(_display);
    if (selector == @selector(start)) {
      [[NSRunLoop mainRunLoop] addEvent:descriptor type:ET_RDESC watcher:self forMode:mode];
    } else {
      [[NSRunLoop mainRunLoop] removeEvent:descriptor type:ET_RDESC forMode:mode all:YES];
    }
  }
}
- (id)initWithMask:(unsigned long long)mask block:(void (^)(NSEvent*))block {
  int event, error, major = 2, minor = 1;
  if ((self = [super init]) == nil || (_display = XOpenDisplay(nullptr)) == nullptr) {
    return nil;
  }
  if (!XQueryExtension(_display, "XInputExtension", &_extension, &event, &error)) {
    return nil;
  }
  XIQueryVersion(_display, &major, &minor);
  unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
  XISetMask(bits, XI_RawButtonPress);
  XISetMask(bits, XI_RawButtonRelease);
  XIEventMask wanted = {XIAllMasterDevices, sizeof bits, bits};
  XISelectEvents(_display, DefaultRootWindow(_display), &wanted, 1);
  XFlush(_display);
  _mask = mask;
  _block = [block copy];
  [self start];
  return self;
}
- (void)start {
  [self forModes:@selector(start)];
}
- (void)end {
  if (_display == nullptr) {
    return;
  }
  [self forModes:@selector(end)];
  XCloseDisplay(_display);
  _display = nullptr;
}
- (void)dealloc {
  [self end];
  [_block release];
  [super dealloc];
}
- (BOOL)isOurs:(Window)found {
  for (NSWindow* each in [NSApp windows]) {
    if ([each isVisible] &&
        (Window)[GSServerForWindow(each) windowDevice:(int)[each windowNumber]] == found) {
      return YES;
    }
  }
  return NO;
}
- (void)pressed:(BOOL)down button:(int)button {
  static const NSEventType downs[] = {NSLeftMouseDown, NSOtherMouseDown, NSRightMouseDown};
  static const NSEventType ups[] = {NSLeftMouseUp, NSOtherMouseUp, NSRightMouseUp};
  Window root, child;
  int x, y, inX, inY;
  unsigned state;
  XQueryPointer(_display, DefaultRootWindow(_display), &root, &child, &x, &y, &inX, &inY, &state);
  if (button < 1 || button > 3 || [self isOurs:child]) {
    return;
  }
  const NSEventType type = (down ? downs : ups)[button - 1];
  if ((_mask & (1ULL << type)) == 0) {
    return;
  }
  _block([NSEvent mouseEventWithType:type
                            location:NSMakePoint(x, NSMaxY([[NSScreen mainScreen] frame]) - y)
                       modifierFlags:0
                           timestamp:0
                        windowNumber:0
                             context:nil
                         eventNumber:0
                          clickCount:1
                            pressure:0]);
}
- (void)receivedEvent:(void*)data
                 type:(RunLoopEventType)type
                extra:(void*)extra
              forMode:(NSString*)mode {
  [[self retain] autorelease];  // the block may end us
  while (_display != nullptr && XPending(_display) > 0) {
    XEvent event;
    XNextEvent(_display, &event);
    if (event.type != GenericEvent || event.xcookie.extension != _extension ||
        !XGetEventData(_display, &event.xcookie)) {
      continue;
    }
    const int button = ((XIRawEventStart*)event.xcookie.data)->button;
    XFreeEventData(_display, &event.xcookie);
    [self pressed:event.xcookie.evtype == XI_RawButtonPress button:button];
  }
}
@end

@implementation NSEvent (Monitors)
static NSInteger monitors;
+ (NSInteger)monitors {
  return monitors;
}
+ (id)addGlobalMonitorForEventsMatchingMask:(unsigned long long)mask
                                    handler:(void (^)(NSEvent*))block {
  ++monitors;
  return [[[MGEventMonitor alloc] initWithMask:mask block:block] autorelease];
}
+ (void)removeMonitor:(id)monitor {
  --monitors;
  [monitor end];
}
@end
