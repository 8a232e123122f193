#pragma once

#include <string_view>

namespace marigold {

/// How a desktop words a text: another one where a word of it would be untrue there ("Keychain"
/// where there is none), else the text itself. What shows texts is given its desktop's; decisions
/// never look at it.
using DesktopTexts = std::string_view (*)(std::string_view text);

/// Texts are written as they read on a Mac.
[[nodiscard]] std::string_view macTexts(std::string_view text);
[[nodiscard]] std::string_view linuxTexts(std::string_view text);

}  // namespace marigold
