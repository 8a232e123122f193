#pragma once

#include <span>
#include <string_view>

namespace marigold {

/// A text and what a desktop says in its place.
struct TextSubstitute {
  std::string_view text;
  std::string_view instead;
};

/// The texts in which a word would be untrue on a desktop ("Keychain" where there is none), and
/// only those. A desktop passes its table to what shows texts; decisions never look at it.
using DesktopTexts = std::span<const TextSubstitute>;

/// The Mac's is empty: texts are written as they read there.
inline constexpr DesktopTexts macTexts{};
[[nodiscard]] DesktopTexts linuxTexts() noexcept;

/// `text` as this desktop words it.
[[nodiscard]] std::string_view worded(std::string_view text, DesktopTexts desktop) noexcept;

}  // namespace marigold
