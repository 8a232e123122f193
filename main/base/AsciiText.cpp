#include "base/AsciiText.h"

#include <system_error>

#include <fast_float/fast_float.h>

namespace marigold {

namespace {

// Bytes beyond ASCII are parts of letters, which keep their case.
constexpr bool isInWord(char c) {
  const char l = lowered(c);
  return (l >= 'a' && l <= 'z') || isDigit(c) || c == '\'' || (c & '\x80') != 0;
}

}  // namespace

std::string lowercased(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), lowered);
  return result;
}

std::string capitalizedWords(std::string text) {
  bool inWord = false;
  for (char& c : text) {
    if (!inWord && c >= 'a' && c <= 'z') {
      c = static_cast<char>(c - 'a' + 'A');
    }
    inWord = isInWord(c);
  }
  return text;
}

std::string_view trimmed(std::string_view text) noexcept {
  constexpr std::string_view blanks = " \t\r\n\v\f";
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}

std::optional<double> decimalNumber(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) {
    text.remove_prefix(1);
  }
  double value = 0;
  const auto [end, error] = fast_float::from_chars(text.data(), text.data() + text.size(), value);
  // Out of range is no failure: the value is infinite, or zero when it is too small.
  if ((error != std::errc() && error != std::errc::result_out_of_range) ||
      end != text.data() + text.size()) {
    return std::nullopt;
  }
  return value;
}

}  // namespace marigold
