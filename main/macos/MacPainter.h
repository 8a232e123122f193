#pragma once

#import <AppKit/AppKit.h>

#include "base/Drawing.h"

namespace marigold {

[[nodiscard]] NSColor* toMac(const Color& color);
[[nodiscard]] NSFont* toMac(const FontStyle& font);

/// Draws into the current graphics context, which is flipped: its origin is the top left corner.
/// `scale` is the number of its pixels a point, on which texts are placed.
void paint(const Drawing& drawing, double scale);

/// The drawing as an image, in its own colours, that is painted whenever it is shown.
[[nodiscard]] NSImage* imageOf(const Drawing& drawing, double scale);

class MacTextMeasurer final : public TextMeasurer {
 public:
  [[nodiscard]] TextExtent measure(std::string_view text, const FontStyle& font) const override;
};

}  // namespace marigold
