#include "macos/MacPictures.h"

#include <cmath>

#import <AppKit/AppKit.h>

#include "macos/MacPainter.h"
#include "macos/MacPanel.h"
#include "macos/MacText.h"
#include "macos/MacViews.h"
#include "popover/DesktopTexts.h"

namespace marigold {

namespace {

constexpr double pixelsPerPoint = 2;

// What a view that is in no window shows.
bool saveView(NSView* view, const std::string& path) {
  const NSSize size = view.bounds.size;
  NSBitmapImageRep* const bitmap =
      [[NSBitmapImageRep alloc] initWithBitmapDataPlanes:nullptr
                                              pixelsWide:std::lround(size.width * pixelsPerPoint)
                                              pixelsHigh:std::lround(size.height * pixelsPerPoint)
                                           bitsPerSample:8
                                         samplesPerPixel:4
                                                hasAlpha:YES
                                                isPlanar:NO
                                          colorSpaceName:NSDeviceRGBColorSpace
                                             bytesPerRow:0
                                            bitsPerPixel:0];
  bitmap.size = size;
  [view cacheDisplayInRect:view.bounds toBitmapImageRep:bitmap];
  NSData* const file = [bitmap representationUsingType:NSBitmapImageFileTypePNG properties:@{}];
  return [file writeToFile:toMac(path) atomically:YES] != NO;
}

bool savePicture(const Picture& picture, const std::string& path) {
  @autoreleasepool {
    [NSApplication sharedApplication];
    const Drawing drawing = picture(MacTextMeasurer());
    MGView* const view =
        [[MGView alloc] initWithFrame:NSMakeRect(0, 0, std::ceil(drawing.size.width),
                                                 std::ceil(drawing.size.height))];
    view.draw = [&drawing] { paint(drawing, pixelsPerPoint); };
    return saveView(view, path);
  }
}

bool savePopover(const PopoverContent& content, const std::string& path) {
  @autoreleasepool {
    [NSApplication sharedApplication];
    MacPanel panel(true);
    panel.take(content);
    panel.setHeight(panel.height());
    return saveView(panel.view(), path);
  }
}

}  // namespace

PictureFiles macPictures() {
  return {.save = savePicture, .savePopover = savePopover};
}

}  // namespace marigold
