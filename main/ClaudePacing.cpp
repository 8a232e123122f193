#include "ClaudePacing.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>

#include "ClaudeHealth.h"
#include "ClaudeUsage.h"
#include "LenientDecoding.h"

namespace marigold {

namespace {

// The least time for which a throttled request or a server error holds off the next.
constexpr double shortestCooldown = 900;

// A reset header's value from here on is a time, not a length of time: 115 days are no window.
constexpr double firstAbsoluteReset = 1e7;

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n\v\f";
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}

// `first` doubled with each step after the first one.
double doubled(double first, int step, double most) {
  return std::min(std::ldexp(first, std::max(step, 1) - 1), most);
}

}  // namespace

std::optional<ClaudeCadenceSample> claudeCadenceSample(
    const std::optional<ProviderSnapshot>& snapshot) {
  if (!snapshot || snapshot->health.kind() != Health::Kind::ok) {
    return std::nullopt;
  }
  const UsageWindow* leading = snapshot->window("5h");
  if (leading == nullptr) {
    leading = snapshot->headlineWindow();
  }
  if (leading == nullptr || !std::isfinite(leading->percent)) {
    return std::nullopt;
  }
  return ClaudeCadenceSample{.percent = leading->percent, .capturedAt = snapshot->capturedAt};
}

void ClaudeCadenceTracker::observe(const std::optional<ClaudeCadenceSample>& sample) {
  if (!sample) {
    previous.reset();
    latest.reset();
  } else if (!latest) {
    latest = sample;
  } else if (sample->capturedAt > latest->capturedAt) {
    previous = latest;
    latest = sample;
  }
}

double ClaudeCadenceTracker::interval(Date now) const {
  if (!previous || !latest || latest->percent <= previous->percent) {
    return backgroundMinInterval;
  }
  const double age = secondsBetween(latest->capturedAt, now);
  return age >= 0 && age <= claudeMovementEvidenceTTL ? activeMinInterval : backgroundMinInterval;
}

std::optional<int> parseRetryAfter(std::optional<std::string_view> text) {
  std::string_view digits = trimmed(text.value_or(""));
  const bool isNegative = digits.starts_with('-');
  if (isNegative || digits.starts_with('+')) {
    digits.remove_prefix(1);
  }
  if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos) {
    return std::nullopt;
  }
  std::int64_t seconds = INT64_MAX;  // stays where there are more digits than it can hold
  std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  if (isNegative && seconds != 0) {
    return std::nullopt;
  }
  return static_cast<int>(std::min<std::int64_t>(seconds, 7200));
}

std::optional<Date> parseUnifiedReset(std::optional<std::string_view> text, Date now) {
  const auto value = decimalNumber(trimmed(text.value_or("")));
  if (!value || !std::isfinite(*value) || *value < 0) {
    return std::nullopt;
  }
  return *value >= firstAbsoluteReset ? dateFromEpoch(*value) : now + Seconds{*value};
}

int backoffDelay(int step, std::optional<int> retryAfter) {
  return retryAfter.value_or(static_cast<int>(doubled(180, step, 3600)));
}

double claudeCooldown(int step, std::optional<int> retryAfter, std::optional<Date> resetAt,
                      Date now) {
  double delay = doubled(shortestCooldown, step, claudeCooldownCap);
  if (retryAfter) {
    delay = std::max(delay, static_cast<double>(*retryAfter));
  }
  if (resetAt) {
    delay = std::max(delay, secondsBetween(now, *resetAt));
  }
  return std::clamp(delay, shortestCooldown, claudeCooldownCap);
}

std::optional<Health> claudeBackoffHealth(const HTTPClassification& classification, Date until) {
  switch (classification.kind) {
    case HTTPClassification::Kind::throttled:
      return Health::rateLimited(until);
    case HTTPClassification::Kind::serverError:
      return Health::serverError(until);
    case HTTPClassification::Kind::ok:
    case HTTPClassification::Kind::unauthorized:
      break;
  }
  return std::nullopt;
}

ClaudeBackoffDecision claudeBackoffDecision(const HTTPClassification& classification, int step,
                                            std::optional<Date> resetAt, Date now) {
  using Kind = HTTPClassification::Kind;
  const int reached = step + 1;
  const bool mayTell =
      classification.kind == Kind::throttled || classification.kind == Kind::serverError;
  const auto retryAfter = mayTell ? classification.retryAfter : std::nullopt;
  const Date until = now + Seconds{claudeCooldown(reached, retryAfter, resetAt, now)};
  return {.until = until,
          .health = claudeBackoffHealth(classification, until).value_or(Health::rateLimited(until)),
          .step = reached};
}

double claudeAuthBackoff(int step) {
  return doubled(300, step, 3600);
}

bool claudeMayBypassBackoff(double minInterval, bool backoffIsAuth) noexcept {
  return backoffIsAuth && minInterval == 0;
}

bool claudeShouldServeCache(std::optional<Date> lastSuccess, double minInterval,
                            bool hasUsableCache, Date now) {
  if (!lastSuccess || !hasUsableCache) {
    return false;
  }
  const double age = secondsBetween(*lastSuccess, now);
  return age >= 0 && age < minInterval;
}

double claudeReadRetryDelay(int failureStreak) {
  return doubled(60, failureStreak, claudeReadRetryCap);
}

bool claudeReadLatches(const KeychainReadError& error) noexcept {
  return error.kind == KeychainReadError::Kind::timedOut;
}

bool claudeReadSpawned(const KeychainReadError& error) noexcept {
  switch (error.kind) {
    case KeychainReadError::Kind::exitStatus:
    case KeychainReadError::Kind::launchFailed:
    case KeychainReadError::Kind::timedOut:
    case KeychainReadError::Kind::overflow:
    case KeychainReadError::Kind::decode:
      return true;
    case KeychainReadError::Kind::ambiguous:
    case KeychainReadError::Kind::indeterminate:
    case KeychainReadError::Kind::notInstalled:
    case KeychainReadError::Kind::locked:
    case KeychainReadError::Kind::unauthorized:
      break;
  }
  return false;
}

Health claudeReadHealth(const KeychainReadError& error) {
  const auto reconnect = [](std::string_view text) { return Health::reconnect(std::string(text)); };
  switch (error.kind) {
    case KeychainReadError::Kind::notInstalled:
      return Health::notInstalled("Claude Code not detected");
    case KeychainReadError::Kind::locked:
      return Health::stale(std::string(ClaudeUnavailable::keychainLocked));
    case KeychainReadError::Kind::ambiguous:
      return reconnect(ClaudeUnavailable::ambiguous);
    case KeychainReadError::Kind::indeterminate:
      return reconnect(ClaudeUnavailable::indeterminate);
    case KeychainReadError::Kind::unauthorized:
      return reconnect(ClaudeUnavailable::unauthorized);
    case KeychainReadError::Kind::timedOut:
      return reconnect(ClaudeUnavailable::timedOut);
    case KeychainReadError::Kind::exitStatus:
    case KeychainReadError::Kind::launchFailed:
    case KeychainReadError::Kind::overflow:
    case KeychainReadError::Kind::decode:
      break;
  }
  return reconnect(ClaudeUnavailable::unreadable);
}

Health claudeTransientHealth(bool tokenExpired) {
  return tokenExpired ? Health::reconnect(std::string(ClaudeUnavailable::tokenExpired))
                      : Health::stale(std::string(claudeStaleReason::fetchFailed));
}

bool claudeMayPersist(int startedEpoch, int currentEpoch) noexcept {
  return startedEpoch == currentEpoch;
}

bool claudeReadsThisCycle(bool turnedOff) noexcept {
  return !turnedOff;
}

bool claudePublishesThisResult(bool sampledRead, bool readsNow) noexcept {
  return sampledRead == readsNow;
}

ProviderSnapshot turnedOffClaudeSnapshot(Date at) {
  return {.provider = ProviderID::claude, .capturedAt = at, .health = Health::turnedOff()};
}

}  // namespace marigold
