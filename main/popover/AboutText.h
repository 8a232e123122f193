#pragma once

#include <string_view>

#include "ports/ApplicationControl.h"

namespace marigold {

inline constexpr std::string_view aboutCreditsWithQt =
    "Shows how much of your allowance with Claude, Codex and Grok is spent, and when it comes "
    "back.\n"
    "Claude is a product of Anthropic, Codex of OpenAI, Grok of xAI. Marigold is made by none of "
    "them.\n"
    "Uses Qt, which comes under the GNU Lesser General Public License, version 3.";
inline constexpr std::string_view aboutCredits =
    aboutCreditsWithQt.substr(0, aboutCreditsWithQt.rfind('\n'));

/// What the About panel says of this program, worded as on a Mac.
[[nodiscard]] AboutPanel aboutPanel();

}  // namespace marigold
