#include "base/Time.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace marigold {

Date dateFromEpoch(double seconds) noexcept {
  if (std::isnan(seconds)) {
    return distantPast;
  }
  return std::clamp(Date{Seconds{seconds}}, distantPast, distantFuture);
}

Date dateFromEpoch(std::int64_t seconds) noexcept {
  return dateFromEpoch(static_cast<double>(seconds));
}

ContinuousClock::duration continuousDuration(Seconds length) noexcept {
  constexpr double hundredYears = 100 * 366 * secondsPerDay;
  if (std::isnan(length.count())) {
    return {};
  }
  const Seconds bounded{std::clamp(length.count(), -hundredYears, hundredYears)};
  return std::chrono::ceil<ContinuousClock::duration>(bounded);
}

CalendarTime calendarTime(Date date) noexcept {
  // The last representable second keeps year 9999, so that every field has its usual width.
  const Date bounded = std::clamp(date, distantPast, distantFuture - Seconds{1});
  const auto seconds = std::chrono::floor<std::chrono::seconds>(bounded);
  const auto days = std::chrono::floor<std::chrono::days>(seconds);
  const std::chrono::year_month_day day{days};
  const std::chrono::hh_mm_ss time{seconds - days};
  return {.year = static_cast<int>(day.year()),
          .month = static_cast<unsigned>(day.month()),
          .day = static_cast<unsigned>(day.day()),
          .hour = static_cast<unsigned>(time.hours().count()),
          .minute = static_cast<unsigned>(time.minutes().count()),
          .second = static_cast<unsigned>(time.seconds().count())};
}

std::string isoText(Date date) {
  const CalendarTime t = calendarTime(date);
  std::array<char, 40> text{};
  const int length = std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02u:%02u:%02uZ",
                                   t.year, t.month, t.day, t.hour, t.minute, t.second);
  return {text.data(), static_cast<std::size_t>(std::max(length, 0))};
}

}  // namespace marigold
