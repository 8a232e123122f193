#pragma once

#include "app/CommandLine.h"
#include "popover/DesktopTexts.h"
#include "ports/PopoverContent.h"

namespace marigold {

/// What the popover shows in the picture that `mode` asks for, made from sample readings through
/// the same rules as the real content; its controls do nothing. Modes without the popover give the
/// cards.
[[nodiscard]] PopoverContent popoverShot(Command::Mode mode, const MarigoldTheme& theme,
                                         DesktopTexts texts, bool offersBarColors);

}  // namespace marigold
