#pragma once

#include <string>
#include <string_view>

namespace marigold {

/// `text` from outside for a terminal or a log: control characters (C0 and C1), what ends a line or
/// turns its direction, and bytes that are not UTF-8 each become "?".
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace marigold
