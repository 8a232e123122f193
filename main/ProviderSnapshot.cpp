#include "ProviderSnapshot.h"

#include <algorithm>
#include <cmath>

namespace marigold {

namespace {

struct ProviderNames {
  std::string_view raw;
  std::string_view display;
};

constexpr ProviderNames names(ProviderID provider) noexcept {
  switch (provider) {
    case ProviderID::claude:
      return {.raw = "claude", .display = "Claude"};
    case ProviderID::codex:
      return {.raw = "codex", .display = "Codex"};
    case ProviderID::grok:
      return {.raw = "grok", .display = "Grok"};
  }
  return {};
}

constexpr double minute = 60;
constexpr double hour = 3600;
constexpr double day = 86400;

constexpr char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Bytes beyond ASCII are parts of letters, which keep their case.
constexpr bool isInWord(char c) {
  const char l = lower(c);
  return (l >= 'a' && l <= 'z') || (c >= '0' && c <= '9') || c == '\'' || (c & '\x80') != 0;
}

bool withholds(Health::Kind kind) noexcept {
  return kind == Health::Kind::notInstalled || kind == Health::Kind::turnedOff;
}

}  // namespace

std::string_view rawValue(ProviderID provider) noexcept {
  return names(provider).raw;
}
std::string_view displayName(ProviderID provider) noexcept {
  return names(provider).display;
}

std::optional<ProviderID> providerFromRawValue(std::string_view text) noexcept {
  for (const ProviderID provider : allProviders) {
    if (rawValue(provider) == text) {
      return provider;
    }
  }
  return std::nullopt;
}

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

bool ProviderSnapshot::isColorTrustworthy(Date now) const noexcept {
  return secondsBetween(capturedAt, now) <= day;
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
  return {.seconds = age, .phrase = relativeAge(age), .isCurrent = age < readingFreshWithin};
}

std::string relativeAge(double seconds) {
  if (!(seconds >= 90)) {  // also for not a number
    return "just now";
  }
  // No reading is older than the calendar: an infinite age must not overflow the count.
  const double age = std::min(seconds, distantFuture.time_since_epoch().count());
  const auto count = [age](double unit) {
    return std::to_string(static_cast<std::int64_t>(age / unit));
  };
  if (age < hour) {
    return count(minute) + "m ago";
  }
  if (age < day) {
    return count(hour) + "h ago";
  }
  return count(day) + "d ago";
}

bool healthWithholdsReading(const std::optional<Health>& health) noexcept {
  return health && withholds(health->kind());
}

int shownPercent(double percent) noexcept {
  // Windows hold 0 to 100; the bounds keep the conversion defined for anything else.
  return static_cast<int>(std::lround(std::clamp(percent, -1e6, 1e6)));
}

std::string lowercased(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), lower);
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

std::set<ProviderID> providersClearedByClearAll() {
  return {allProviders.begin(), allProviders.end()};
}

std::set<ProviderID> providersClearedByClaudeOff() {
  return {ProviderID::claude};
}

}  // namespace marigold
