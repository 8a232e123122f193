#include "claude/ClaudePacing.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "claude/ClaudeTexts.h"

namespace marigold {

namespace {

// The least time for which a throttled request or a server error holds off the next.
constexpr Seconds shortestCooldown{900};

// `first` doubled with each step after the first one.
Seconds doubled(Seconds first, int step, Seconds most) {
  return std::min(Seconds{std::ldexp(first.count(), std::max(step, 1) - 1)}, most);
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

Seconds ClaudeCadenceTracker::interval(Date now) const {
  if (!previous || !latest || latest->percent <= previous->percent) {
    return backgroundMinInterval;
  }
  const Seconds age = now - latest->capturedAt;
  return age >= Seconds{0} && age <= claudeMovementEvidenceTTL ? activeMinInterval
                                                               : backgroundMinInterval;
}

std::chrono::seconds backoffDelay(int step, std::optional<std::chrono::seconds> retryAfter) {
  return retryAfter.value_or(
      std::chrono::duration_cast<std::chrono::seconds>(doubled(Seconds{180}, step, Seconds{3600})));
}

Seconds claudeCooldown(int step, std::optional<std::chrono::seconds> retryAfter,
                       std::optional<Date> resetAt, Date now) {
  Seconds delay = doubled(shortestCooldown, step, claudeCooldownCap);
  if (retryAfter) {
    delay = std::max(delay, Seconds{*retryAfter});
  }
  if (resetAt) {
    delay = std::max(delay, *resetAt - now);
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
  const int reached = step + 1;
  const Date until = now + claudeCooldown(reached, classification.retryAfter, resetAt, now);
  return {.until = until,
          .health = claudeBackoffHealth(classification, until).value_or(Health::rateLimited(until)),
          .step = reached};
}

Seconds claudeAuthBackoff(int step) {
  return doubled(Seconds{300}, step, Seconds{3600});
}

bool claudeMayBypassBackoff(Seconds minInterval, bool backoffIsAuth) noexcept {
  return backoffIsAuth && minInterval == Seconds{0};
}

bool claudeShouldServeCache(std::optional<Instant> lastSuccess, Seconds minInterval,
                            bool hasUsableCache, Instant now) noexcept {
  return lastSuccess && hasUsableCache && now - *lastSuccess < minInterval;
}

Seconds claudeReadRetryDelay(int failureStreak) {
  return doubled(Seconds{60}, failureStreak, claudeReadRetryCap);
}

bool claudeReadLatches(const KeychainReadError& error) noexcept {
  return error.kind == KeychainReadError::Kind::timedOut;
}

bool claudeReadSpawned(const KeychainReadError& error) noexcept {
  return caseRow(error.kind).spawned;
}

Health claudeReadHealth(const KeychainReadError& error) {
  std::string text(caseRow(error.kind).text);
  switch (error.kind) {
    case KeychainReadError::Kind::notInstalled:
      return Health::notInstalled(std::move(text));
    case KeychainReadError::Kind::locked:
      return Health::stale(std::move(text));
    default:
      return Health::reconnect(std::move(text));
  }
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
