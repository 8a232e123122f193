#pragma once

#include <string_view>
#include <vector>

#include "base/MenuItem.h"
#include "model/ProviderSnapshot.h"
#include "ports/ApplicationControl.h"
#include "ports/PopoverContent.h"

namespace marigold {

/// How a desktop words a text: another one where a word of it would be untrue there ("Keychain"
/// where there is none), else the text itself. What shows texts is given its desktop's; decisions
/// never look at it.
using DesktopTexts = std::string_view (*)(std::string_view text);

/// All that the popover shows, a menu, the About panel, or what is told of a provider, as a
/// desktop words it.
[[nodiscard]] PopoverContent worded(PopoverContent content, DesktopTexts texts);
[[nodiscard]] std::vector<MenuItem> worded(std::vector<MenuItem> items, DesktopTexts texts);
[[nodiscard]] AboutPanel worded(AboutPanel about, DesktopTexts texts);
[[nodiscard]] ProviderSnapshot worded(const ProviderSnapshot& snapshot, DesktopTexts texts);

/// Texts are written as they read on a Mac.
[[nodiscard]] std::string_view macTexts(std::string_view text);
[[nodiscard]] std::string_view linuxTexts(std::string_view text);

}  // namespace marigold
