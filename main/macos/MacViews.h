#pragma once

#include <functional>
#include <string>

#import <AppKit/AppKit.h>

#include "popover/PopoverTheme.h"
#include "ports/PopoverContent.h"

/// A view whose origin is its top left corner, on a ground of its own where it has one.
@interface MGView : NSView
@property(nonatomic) std::function<void()> draw;
@end

namespace marigold {

/// What a text looks like: its size in parts of the interface font's.
struct Ink {
  double size = 1;
  FontStyle::Weight weight = FontStyle::Weight::regular;
  Color color;
};

/// A text of one line, or of as many as it takes where `width` is not 0.
[[nodiscard]] NSTextField* makeLabel(const std::string& text, const Ink& ink, double width = 0);
/// A borderless button that shows one of the system's symbols, known by `name`.
[[nodiscard]] NSButton* makeSymbolButton(NSString* symbol, const std::string& name,
                                         std::function<void()> press);
[[nodiscard]] NSButton* makeTitleButton(const std::string& title, std::function<void()> press);

/// Has `control` call `use`, and keeps it.
void onUse(NSControl* control, std::function<void()> use);

/// Has an assistive technology read `view` as one thing, called `label`.
void speakAs(NSView* view, NSAccessibilityRole role, const std::string& label);

/// Puts `view`, of its own size, at `x` from the side at which lines begin.
void place(NSView* view, NSView* parent, double x, double y);

/// A rounded ground with an edge, drawn over the whole of `view`.
void drawPanel(NSView* view, double radius, const Color& ground, const Color& edge);

}  // namespace marigold
