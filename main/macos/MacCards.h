#pragma once

#include "macos/MacViews.h"
#include "ports/PopoverContent.h"

namespace marigold {

/// A provider's card, `width` points wide and as tall as it must be. `isOpen` tells whether the
/// disclosure is, and `turn` is called to have it otherwise.
[[nodiscard]] NSView* makeCard(const ProviderCard& card, const PopoverColors& colors, double width,
                               bool isOpen, const std::function<void()>& turn);

}  // namespace marigold
