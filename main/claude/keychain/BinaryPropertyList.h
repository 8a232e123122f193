#pragma once

#include <string_view>

namespace marigold {

/// Whether `bytes` begin as the binary form of a property list.
[[nodiscard]] bool isBinaryPropertyList(std::string_view bytes);

/// Whether no list or dictionary of a binary property list, nor the bytes of one, is held twice. A
/// library may copy what is held each time, and so on below.
[[nodiscard]] bool sharesNothing(std::string_view bytes);

}  // namespace marigold
