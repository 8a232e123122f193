#include "bar/MenuBarTexts.h"

#include <algorithm>
#include <cstdint>

#include "model/MenuBarPreferences.h"

namespace marigold {

namespace {

/// Whole units in a length of time, truncated; saturates at the length of the calendar.
std::int64_t whole(double length, double unit) noexcept {
  const double longest = secondsBetween(distantPast, distantFuture);
  // Ordered so that not a number counts as none.
  return static_cast<std::int64_t>(std::min(longest, std::max(0.0, length)) / unit);
}

std::string twoDigits(std::int64_t number) {
  return (number < 10 ? "0" : "") + std::to_string(number);
}

double secondsUntil(Date resetsAt, Date now) noexcept {
  return secondsBetween(now, std::min(resetsAt, distantFuture));
}

}  // namespace

std::optional<std::string> menuResetToken(std::optional<Date> resetsAt, Date now) {
  if (!resetsAt || !(*resetsAt > now)) {
    return std::nullopt;
  }
  const std::int64_t minutes =
      std::max<std::int64_t>(1, whole(secondsUntil(*resetsAt, now), secondsPerMinute));
  if (minutes < minutesPerHour) {
    return std::to_string(minutes) + "m";
  }
  if (minutes < minutesPerDay) {
    return std::to_string(minutes / minutesPerHour) + "h" + twoDigits(minutes % minutesPerHour) +
           "m";
  }
  const std::string days = std::to_string(minutes / minutesPerDay) + "d";
  // From ten days on the hours say nothing more.
  return minutes < 10 * minutesPerDay ? days + twoDigits(minutes / minutesPerHour % 24) + "h"
                                      : days;
}

std::optional<std::string> windowResetText(std::optional<Date> resetsAt, Date now,
                                           const LocalTimeText& localTime) {
  if (!resetsAt) {
    return std::nullopt;
  }
  const double remaining = secondsUntil(*resetsAt, now);
  if (!(remaining > 0)) {
    return "window reset, no new reading yet";
  }
  const std::int64_t minutes = whole(remaining, secondsPerMinute);
  if (remaining < secondsPerHour) {
    return "resets in " + std::to_string(std::max<std::int64_t>(1, minutes)) + "m";
  }
  if (remaining < secondsPerDay) {
    return "resets in " + std::to_string(minutes / minutesPerHour) + "h " +
           std::to_string(minutes % minutesPerHour) + "m";
  }
  return "resets " + localTime.weekdayAndTime(std::min(*resetsAt, distantFuture));
}

std::optional<std::string> menuWindowShortLabel(std::optional<std::string_view> label) {
  if (label == limitLabel(MenuBarWindowKind::fiveHour)) {
    return "5h";
  }
  return label == limitLabel(MenuBarWindowKind::weekly) ? std::optional<std::string>("wk")
                                                        : std::nullopt;
}

std::string shortAge(double seconds) {
  if (seconds >= secondsPerDay) {
    return std::to_string(std::min<std::int64_t>(whole(seconds, secondsPerDay), 99)) + "d";
  }
  if (seconds >= secondsPerHour) {
    return std::to_string(whole(seconds, secondsPerHour)) + "h";
  }
  return std::to_string(std::max<std::int64_t>(1, whole(seconds, secondsPerMinute))) + "m";
}

MenuBarEmptyState menuBarEmptyStateText(bool anyProviderPresent) noexcept {
  if (!anyProviderPresent) {
    return {.tooltip = "Marigold: no data yet", .spoken = "Marigold, no data yet"};
  }
  return {.tooltip = "Marigold: no providers shown in the menu bar. Enable one in the popover.",
          .spoken = "Marigold, no providers shown in the menu bar. Open Marigold to enable one."};
}

}  // namespace marigold
