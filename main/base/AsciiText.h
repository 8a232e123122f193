#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

// Texts of outside data, byte by byte: letters, digits and blanks are those of ASCII in every
// locale alike, and whatever lies beyond is left as it is.

namespace marigold {

inline constexpr std::string_view asciiDigits = "0123456789";

[[nodiscard]] constexpr bool isDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

[[nodiscard]] constexpr char lowered(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// `text` with its letters in lower case.
[[nodiscard]] std::string lowercased(std::string_view text);
/// A plan's name for display: `text` with the first letter of each word, when ASCII, in upper case.
[[nodiscard]] std::string capitalizedWords(std::string text);

/// The digits that `text` begins with.
[[nodiscard]] constexpr std::string_view leadingDigits(std::string_view text) noexcept {
  return text.substr(0, std::min(text.find_first_not_of(asciiDigits), text.size()));
}

/// `text` without the blanks, line ends among them, around it.
[[nodiscard]] std::string_view trimmed(std::string_view text) noexcept;

/// The whole of `text` as a decimal number ("16", "-1.5", "1e3"): no blanks, nothing behind it. May
/// be infinite or not a number when the text says so.
[[nodiscard]] std::optional<double> decimalNumber(std::string_view text);

}  // namespace marigold
