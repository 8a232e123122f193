#include "model/ProviderSnapshot.h"

#include <algorithm>
#include <cmath>

namespace marigold {

namespace {

constexpr std::string_view justNow = "just now";
constexpr std::string_view ago = " ago";

bool withholds(Health::Kind kind) noexcept {
  return kind == Health::Kind::notInstalled || kind == Health::Kind::turnedOff;
}

}  // namespace

Health Health::stale(std::string reason) {
  return {Kind::stale, std::move(reason), {}};
}
Health Health::reconnect(std::string reason) {
  return {Kind::reconnect, std::move(reason), {}};
}
Health Health::rateLimited(std::optional<Date> until) {
  return {Kind::rateLimited, {}, until};
}
Health Health::serverError(std::optional<Date> until) {
  return {Kind::serverError, {}, until};
}
Health Health::notInstalled(std::string reason) {
  return {Kind::notInstalled, std::move(reason), {}};
}
Health Health::ok() {
  return {Kind::ok, {}, {}};
}
Health Health::turnedOff() {
  return {Kind::turnedOff, {}, {}};
}

bool ProviderSnapshot::rendersGauge() const noexcept {
  return isUsable() && !withholds(health.kind());
}

const UsageWindow* ProviderSnapshot::headlineWindow() const noexcept {
  const auto largest = std::ranges::max_element(windows, {}, &UsageWindow::percent);
  return largest == windows.end() ? nullptr : &*largest;
}

std::optional<double> ProviderSnapshot::headlinePercent() const noexcept {
  const UsageWindow* headline = headlineWindow();
  return headline != nullptr ? std::optional(headline->percent) : std::nullopt;
}

const UsageWindow* ProviderSnapshot::window(std::string_view label) const noexcept {
  const auto found = std::ranges::find(windows, label, &UsageWindow::label);
  return found == windows.end() ? nullptr : &*found;
}

std::optional<double> ProviderSnapshot::percent(std::string_view forWindowLabel) const noexcept {
  const UsageWindow* found = window(forWindowLabel);
  return found != nullptr ? std::optional(found->percent) : std::nullopt;
}

std::optional<Date> ProviderSnapshot::soonestReset() const noexcept {
  std::optional<Date> soonest;
  for (const UsageWindow& window : windows) {
    if (window.resetsAt && (!soonest || *window.resetsAt < *soonest)) {
      soonest = window.resetsAt;
    }
  }
  return soonest;
}

bool ProviderSnapshot::allReset(Date now) const noexcept {
  return std::ranges::all_of(windows, [now](const UsageWindow& window) {
    return window.resetsAt && *window.resetsAt <= now;
  });
}

bool ProviderSnapshot::isColorTrustworthy(Date now) const noexcept {
  return secondsBetween(capturedAt, now) <= secondsPerDay;
}

std::string ProviderSnapshot::accessibilityDescription(std::string_view selected) const {
  const std::string name(displayName(provider));
  if (const auto chosen = percent(selected)) {
    return name + " " + std::string(selected) + " " + std::to_string(shownPercent(*chosen)) + "%";
  }
  if (const auto headline = headlinePercent()) {
    return name + " " + std::to_string(shownPercent(*headline)) + "%";
  }
  return name + ": no data";
}

std::string ProviderSnapshot::shownReason(Date now) const {
  const std::string& reason = health.reason();
  const bool tellsAge = reason == justNow || reason.ends_with(ago);
  return tellsAge ? relativeAge(secondsBetween(capturedAt, now)) : reason;
}

CachedSnapshot ProviderSnapshot::cached() const {
  return {.provider = provider,
          .windows = windows,
          .capturedAt = capturedAt,
          .planLabel = planLabel,
          .extraNote = extraNote};
}

ProviderSnapshot ProviderSnapshot::withHealth(Health replacement) const {
  ProviderSnapshot changed = *this;
  changed.health = std::move(replacement);
  return changed;
}

ProviderSnapshot CachedSnapshot::restored(Date now) const {
  return {.provider = provider,
          .windows = windows,
          .capturedAt = capturedAt,
          .health = Health::stale(relativeAge(secondsBetween(capturedAt, now))),
          .planLabel = planLabel,
          .extraNote = extraNote};
}

ReadingAge readingAge(double seconds) {
  const double age = seconds > 0 ? seconds : 0;  // also for not a number
  return {
      .seconds = age, .phrase = relativeAge(age), .isCurrent = age < readingFreshWithin.count()};
}

std::string relativeAge(double seconds) {
  if (!(seconds >= 90)) {  // also for not a number
    return std::string(justNow);
  }
  // No reading is older than the calendar: an infinite age must not overflow the count.
  const double age = std::min(seconds, distantFuture.time_since_epoch().count());
  const auto count = [age](double unit) {
    return std::to_string(static_cast<std::int64_t>(age / unit));
  };
  if (age < secondsPerHour) {
    return count(secondsPerMinute).append("m").append(ago);
  }
  if (age < secondsPerDay) {
    return count(secondsPerHour).append("h").append(ago);
  }
  return count(secondsPerDay).append("d").append(ago);
}

bool healthWithholdsReading(const std::optional<Health>& health) noexcept {
  return health && withholds(health->kind());
}

int shownPercent(double percent) noexcept {
  // Windows hold 0 to 100; the bounds keep the conversion defined for anything else.
  return static_cast<int>(std::lround(std::clamp(percent, -1e6, 1e6)));
}

std::set<ProviderID> providersClearedByClearAll() {
  return {allCases<ProviderID>.begin(), allCases<ProviderID>.end()};
}

std::set<ProviderID> providersClearedByClaudeOff() {
  return {ProviderID::claude};
}

}  // namespace marigold
