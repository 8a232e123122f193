// What views and pictures of today have and GNUstep's lack.
#import <AppKit/NSAccessibility.h>

#import "Extras.h"

// Kept for tests to look at; nothing speaks them.
@implementation NSView (Completion)
STORED(NSString*, accessibilityLabel, setAccessibilityLabel)
STORED(NSString*, accessibilityHelp, setAccessibilityHelp)
STORED(id, accessibilityValue, setAccessibilityValue)
STORED(NSString*, accessibilityRole, setAccessibilityRole)
STORED(NSString*, identifier, setIdentifier)
STORED_FLAG(isAccessibilityElement, setAccessibilityElement)
- (NSAppearance*)appearance {
  return [extras(self) objectForKey:@"appearance"];
}
- (void)setAppearance:(NSAppearance*)appearance {
  [self willChangeValueForKey:@"effectiveAppearance"];
  if (appearance != nil) {
    [extras(self) setObject:appearance forKey:@"appearance"];
  }
  [self didChangeValueForKey:@"effectiveAppearance"];
}
// Their own, their superview's or light: the application's is not looked at.
- (NSAppearance*)effectiveAppearance {
  NSAppearance* own = [self appearance];
  return own != nil                ? own
         : [self superview] != nil ? [[self superview] effectiveAppearance]
                                   : [NSAppearance appearanceNamed:@"NSAppearanceNameAqua"];
}
// Without a display, at as many pixels a point as the picture has.
- (void)cacheDisplayInRect:(NSRect)rect toBitmapImageRep:(NSBitmapImageRep*)bitmap {
  const NSInteger wide = [bitmap pixelsWide];
  const NSInteger tall = [bitmap pixelsHigh];
  const CGFloat scale = wide / NSWidth(rect);
  NSWindow* window = [[[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, wide, tall)
                                                  styleMask:NSBorderlessWindowMask
                                                    backing:NSBackingStoreBuffered
                                                      defer:NO] autorelease];
  [window setReleasedWhenClosed:NO];
  [window setOpaque:NO];
  [window setBackgroundColor:[NSColor clearColor]];
  NSView* ground = [window contentView];
  [ground addSubview:self];
  [self setFrameOrigin:NSZeroPoint];
  [ground setBoundsSize:NSMakeSize(wide / scale, tall / scale)];
  [ground display];
  [ground lockFocus];
  NSBitmapImageRep* drawn =
      [[[NSBitmapImageRep alloc] initWithFocusedViewRect:[ground bounds]] autorelease];
  [ground unlockFocus];
  const NSInteger samples = [drawn samplesPerPixel];
  for (NSInteger y = 0; y < tall; ++y) {
    const unsigned char* from = [drawn bitmapData] + y * [drawn bytesPerRow];
    unsigned char* to = [bitmap bitmapData] + y * [bitmap bytesPerRow];
    for (NSInteger x = 0; x < wide; ++x) {
      for (NSInteger sample = 0; sample < 4; ++sample) {
        to[4 * x + sample] = sample < samples ? from[samples * x + sample] : 255;
      }
    }
  }
  [self removeFromSuperview];
}
@end

@implementation NSAppearance (Completion)
- (NSString*)bestMatchFromAppearancesWithNames:(NSArray*)names {
  return [names containsObject:[self name]] ? [self name] : [names firstObject];
}
@end

// A symbol is a ring here, whatever it is called.
@implementation NSImage (Symbols)
+ (instancetype)imageWithSystemSymbolName:(NSString*)name
                 accessibilityDescription:(NSString*)description {
  NSImage* image = [NSImage imageWithSize:NSMakeSize(14, 14)
                                  flipped:YES
                           drawingHandler:^BOOL(NSRect bounds) {
                             NSBezierPath* ring =
                                 [NSBezierPath bezierPathWithOvalInRect:NSInsetRect(bounds, 2, 2)];
                             [[NSColor grayColor] setStroke];
                             [ring stroke];
                             return YES;
                           }];
  [image setName:nil];
  [extras(image) setObject:name forKey:@"symbol"];
  [image setAccessibilityDescription:description];
  return image;
}
@end

@implementation NSTextField (Completion)
STORED(NSNumber*, widest, setWidest)
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
+ (instancetype)wrappingLabelWithString:(NSString*)text {
  NSTextField* label = [self labelWithString:text];
  [[label cell] setWraps:YES];
  [[label cell] setLineBreakMode:NSLineBreakByWordWrapping];
  return label;
}
- (void)setPreferredMaxLayoutWidth:(CGFloat)width {
  [self setWidest:[NSNumber numberWithDouble:width]];
}
- (CGFloat)preferredMaxLayoutWidth {
  return [[self widest] doubleValue];
}
- (NSSize)intrinsicContentSize {
  const CGFloat width = [self preferredMaxLayoutWidth];
  if (width <= 0) {
    return [[self cell] cellSize];
  }
  const NSRect lines =
      [[self attributedStringValue] boundingRectWithSize:NSMakeSize(width - 4, 1e6)
                                                 options:NSStringDrawingUsesLineFragmentOrigin];
  return NSMakeSize(width, ceil(NSHeight(lines)) + 2);
}
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
