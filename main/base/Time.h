#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace marigold {

/// A length of time in seconds.
using Seconds = std::chrono::duration<double>;

inline constexpr double secondsPerMinute = 60;
inline constexpr double secondsPerHour = 3600;
inline constexpr double secondsPerDay = 86400;
inline constexpr std::int64_t minutesPerHour = 60;
inline constexpr std::int64_t minutesPerDay = 1440;

/// Wall-clock time: seconds since 1970-01-01 00:00:00 UTC.
using Date = std::chrono::sys_time<Seconds>;

/// The continuous clock, which goes on counting while the machine sleeps and never jumps. It has no
/// now(): only an EventLoop reads it.
struct ContinuousClock {
  using duration = std::chrono::nanoseconds;
  using rep = duration::rep;
  using period = duration::period;
  using time_point = std::chrono::time_point<ContinuousClock, duration>;
  static constexpr bool is_steady = true;
};
using Instant = ContinuousClock::time_point;

/// The limits that hostile numbers saturate to: the first second of year 1 and of year 10000, UTC.
inline constexpr Date distantPast{Seconds{-62135596800.0}};
inline constexpr Date distantFuture{Seconds{253402300800.0}};

/// The date `seconds` after 1970, saturating at `distantPast` and `distantFuture`; not a number
/// gives `distantPast`.
[[nodiscard]] Date dateFromEpoch(double seconds) noexcept;
[[nodiscard]] Date dateFromEpoch(std::int64_t seconds) noexcept;

/// Seconds from `earlier` to `later`, negative when they are the other way round.
[[nodiscard]] constexpr double secondsBetween(Date earlier, Date later) noexcept {
  return (later - earlier).count();
}

/// A time further ahead than this, in seconds, was taken under a wrong clock. It keeps no other
/// out.
inline constexpr double clockTolerance = 300;
[[nodiscard]] constexpr bool isFromFuture(Date moment, Date now) noexcept {
  return secondsBetween(now, moment) > clockTolerance;
}
/// The time by which readings are ordered: what is from the future is the oldest.
[[nodiscard]] constexpr Date trustedDate(Date moment, Date now) noexcept {
  return isFromFuture(moment, now) ? distantPast : moment;
}

/// A length of time on the continuous clock, rounded up to its resolution and saturating at 100
/// years; not a number gives zero.
[[nodiscard]] ContinuousClock::duration continuousDuration(Seconds length) noexcept;

/// Calendar fields of a date in UTC, for diagnostics; saturates like `dateFromEpoch`.
struct CalendarTime {
  int year;
  unsigned month, day, hour, minute, second;
};
[[nodiscard]] CalendarTime calendarTime(Date date) noexcept;

/// "2026-06-12T13:40:42Z", whole seconds, for diagnostics.
[[nodiscard]] std::string isoText(Date date);

}  // namespace marigold
