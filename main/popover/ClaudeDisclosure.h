#pragma once

#include <array>
#include <optional>
#include <string_view>

// How the Claude login is read, told on the Claude card.

namespace marigold {

inline constexpr std::string_view claudeDisclosureTitle =
    "What Marigold does with your Claude login";

/// Its paragraphs, as they are true on a Mac.
[[nodiscard]] std::array<std::string_view, 7> claudeDisclosure() noexcept;
/// The wording on Linux of one of them; nothing where the Mac's is true there.
[[nodiscard]] std::optional<std::string_view> claudeDisclosureOnLinux(std::string_view text);

}  // namespace marigold
