#include "base/ISODate.h"

#include <string>

#include "base/AsciiText.h"

namespace marigold {

namespace {

// Reads a fixed-width decimal field of an ISO date.
std::optional<unsigned> digits(std::string_view text, std::size_t at, std::size_t count) {
  if (at + count > text.size()) {
    return std::nullopt;
  }
  unsigned value = 0;
  for (const char c : text.substr(at, count)) {
    if (!isDigit(c)) {
      return std::nullopt;
    }
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  return value;
}

// "Z", or "+hh:mm" and "-hh:mm", as seconds east of UTC.
std::optional<double> zoneOffset(std::string_view text) {
  if (text == "Z") {
    return 0.0;
  }
  if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':') {
    return std::nullopt;
  }
  const auto hours = digits(text, 1, 2);
  const auto minutes = digits(text, 4, 2);
  if (!hours || !minutes || *hours > 23 || *minutes > 59) {
    return std::nullopt;
  }
  const double seconds = *hours * secondsPerHour + *minutes * secondsPerMinute;
  return text[0] == '-' ? -seconds : seconds;
}

// "yyyy-mm-ddThh:mm:ss" at the start of `text`, as if in UTC.
std::optional<Date> dateTime(std::string_view text) {
  constexpr std::string_view form = "0000-00-00T00:00:00";
  if (text.size() < form.size()) {
    return std::nullopt;
  }
  for (std::size_t i = 0; i < form.size(); ++i) {
    if (form[i] != '0' && text[i] != form[i]) {
      return std::nullopt;
    }
  }
  const auto year = digits(text, 0, 4);
  const auto month = digits(text, 5, 2);
  const auto day = digits(text, 8, 2);
  const auto hour = digits(text, 11, 2);
  const auto minute = digits(text, 14, 2);
  const auto second = digits(text, 17, 2);
  if (!year || !month || !day || !hour || !minute || !second) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(*year)),
                                         std::chrono::month(*month), std::chrono::day(*day)};
  if (!date.ok() || *hour > 23 || *minute > 59 || *second > 59) {
    return std::nullopt;
  }
  return Date{std::chrono::sys_days(date)} +
         Seconds{*hour * secondsPerHour + *minute * secondsPerMinute + *second};
}

constexpr std::size_t dateTimeLength = 19;

}  // namespace

std::optional<Date> ISODate::withFrac(std::string_view text) {
  const auto whole = dateTime(text);
  if (!whole || text.size() <= dateTimeLength || text[dateTimeLength] != '.') {
    return std::nullopt;
  }
  const std::string_view rest = text.substr(dateTimeLength + 1);
  const std::string_view digits = leadingDigits(rest);
  const auto offset = zoneOffset(rest.substr(digits.size()));
  const auto fraction = decimalNumber("0." + std::string(digits));
  if (digits.empty() || !offset || !fraction) {
    return std::nullopt;
  }
  return *whole + Seconds{*fraction} - Seconds{*offset};
}

std::optional<Date> ISODate::plain(std::string_view text) {
  const auto whole = dateTime(text);
  if (!whole) {
    return std::nullopt;
  }
  const auto offset = zoneOffset(text.substr(dateTimeLength));
  if (!offset) {
    return std::nullopt;
  }
  return *whole - Seconds{*offset};
}

std::optional<Date> ISODate::parse(std::optional<std::string_view> text) {
  if (!text || text->empty()) {
    return std::nullopt;
  }
  if (const auto date = withFrac(*text)) {
    return date;
  }
  return plain(*text);
}

}  // namespace marigold
