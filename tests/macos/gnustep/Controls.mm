// What native controls of today have and GNUstep's lack: constructors with titles and their own
// sizes.
#import "Extras.h"

@implementation NSWindow (Controls)
- (NSPoint)convertPointToScreen:(NSPoint)point {
  return [self convertBaseToScreen:point];
}
@end

@implementation NSView (Controls)
- (NSSize)intrinsicContentSize {
  return NSMakeSize(-1, -1);
}
@end

@implementation NSControl (Controls)
- (void)setLineBreakMode:(NSLineBreakMode)mode {
  [[self cell] setLineBreakMode:mode];
}
- (NSLineBreakMode)lineBreakMode {
  return [[self cell] lineBreakMode];
}
- (NSSize)intrinsicContentSize {
  return [self cell] != nil ? [[self cell] cellSize] : NSMakeSize(-1, -1);
}
@end

@implementation NSSwitch (Controls)
STORED(NSString*, accessibilityLabel, setAccessibilityLabel)
// There it is disabled at first.
- (id)initWithFrame:(NSRect)frame {
  if ((self = [super initWithFrame:frame])) {
    [self setEnabled:YES];
  }
  return self;
}
- (NSSize)intrinsicContentSize {
  return NSMakeSize(38, 22);
}
@end

@implementation NSButton (Controls)
STORED(NSColor*, contentTintColor, setContentTintColor)
+ (instancetype)buttonWithImage:(NSImage*)image target:(id)target action:(SEL)action {
  NSButton* button = [[[self alloc] initWithFrame:NSMakeRect(0, 0, 10, 10)] autorelease];
  [button setImage:image];
  [button setImagePosition:NSImageOnly];
  [button setTarget:target];
  [button setAction:action];
  [button sizeToFit];
  return button;
}
+ (instancetype)buttonWithTitle:(NSString*)title target:(id)target action:(SEL)action {
  NSButton* button = [[[self alloc] initWithFrame:NSMakeRect(0, 0, 10, 10)] autorelease];
  [button setTitle:title];
  [button setTarget:target];
  [button setAction:action];
  [button setBezelStyle:NSRoundedBezelStyle];
  [button sizeToFit];
  return button;
}
+ (instancetype)checkboxWithTitle:(NSString*)title target:(id)target action:(SEL)action {
  NSButton* button = [self buttonWithTitle:title target:target action:action];
  [button setButtonType:NSSwitchButton];
  [button setBordered:NO];
  [button sizeToFit];
  return button;
}
@end

@implementation NSSegmentedControl (Controls)
- (void)setToolTip:(NSString*)text forSegment:(NSInteger)segment {
  [[self cell] setToolTip:text forSegment:segment];
}
- (NSString*)toolTipForSegment:(NSInteger)segment {
  return [[self cell] toolTipForSegment:segment];
}
+ (instancetype)segmentedControlWithLabels:(NSArray*)labels
                              trackingMode:(NSInteger)mode
                                    target:(id)target
                                    action:(SEL)action {
  NSSegmentedControl* control = [[[self alloc] initWithFrame:NSZeroRect] autorelease];
  [control setSegmentCount:[labels count]];
  for (NSUInteger i = 0; i < [labels count]; ++i) {
    [control setLabel:[labels objectAtIndex:i] forSegment:i];
    [control setWidth:[[labels objectAtIndex:i]
                          sizeWithAttributes:@{NSFontAttributeName : [NSFont systemFontOfSize:0]}]
                          .width +
                      20
           forSegment:i];
  }
  [[control cell] setTrackingMode:(NSSegmentSwitchTracking)mode];
  [control setTarget:target];
  [control setAction:action];
  [control sizeToFit];
  return control;
}
- (NSSize)intrinsicContentSize {
  CGFloat width = 0;
  for (NSInteger i = 0; i < [self segmentCount]; ++i) {
    width += [self widthForSegment:i];
  }
  return NSMakeSize(width, 24);
}
- (void)sizeToFit {
  [self setFrameSize:[self intrinsicContentSize]];
}
@end
