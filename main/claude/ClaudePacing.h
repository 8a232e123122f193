#pragma once

#include <chrono>
#include <optional>

#include "claude/ClaudeCredentials.h"
#include "claude/HTTPClassification.h"
#include "model/ProviderSnapshot.h"

// Rules that pace the requests to Anthropic's usage endpoint and the reads of the Claude login. All
// pure; times come in.

namespace marigold {

/// Shortest times between two requests: while usage rests, while it moves, and when the user is
/// looking.
inline constexpr Seconds backgroundMinInterval{900};
inline constexpr Seconds activeMinInterval{450};
inline constexpr Seconds onDemandMinInterval{60};

/// How long a rise in usage counts as evidence that usage is moving.
inline constexpr Seconds claudeMovementEvidenceTTL{1800};
/// The longest time for which an answer of the server holds off requests.
inline constexpr Seconds claudeCooldownCap{7200};
/// The longest time for which a failed read of the login holds off the next one.
inline constexpr Seconds claudeReadRetryCap{900};

/// The headline percentage of one Claude reading.
struct ClaudeCadenceSample {
  double percent = 0;
  Date capturedAt;

  bool operator==(const ClaudeCadenceSample&) const = default;
};

/// The sample of a reading: its "5h" window, else its headline window. Nothing unless the reading
/// is `ok` and the percentage finite.
[[nodiscard]] std::optional<ClaudeCadenceSample> claudeCadenceSample(
    const std::optional<ProviderSnapshot>& snapshot);

/// The last two readings of Claude, from which background requests are paced.
struct ClaudeCadenceTracker {
  std::optional<ClaudeCadenceSample> previous;
  std::optional<ClaudeCadenceSample> latest;

  bool operator==(const ClaudeCadenceTracker&) const = default;

  /// Takes a later sample; an absent one forgets both.
  void observe(const std::optional<ClaudeCadenceSample>& sample);
  /// The shortest time between two background requests: `activeMinInterval` while usage is seen to
  /// rise, else `backgroundMinInterval`.
  [[nodiscard]] Seconds interval(Date now) const;
};

/// `retryAfter` as it is, else 180 s doubled with each step after the first, at most 3600 s.
[[nodiscard]] std::chrono::seconds backoffDelay(int step,
                                                std::optional<std::chrono::seconds> retryAfter);
/// How long an answer holds off requests: the longest of 900 s doubled with each step after the
/// first, of `retryAfter` and of the time until `resetAt`, at most `claudeCooldownCap`.
[[nodiscard]] Seconds claudeCooldown(int step, std::optional<std::chrono::seconds> retryAfter,
                                     std::optional<Date> resetAt, Date now);
/// Of a throttled request and a server error.
[[nodiscard]] std::optional<Health> claudeBackoffHealth(const HTTPClassification& classification,
                                                        Date until);

/// What follows from a throttled request or a server error.
struct ClaudeBackoffDecision {
  Date until;  ///< no request before it
  Health health = Health::ok();
  int step = 0;  ///< how many such answers there were in a row

  bool operator==(const ClaudeBackoffDecision&) const = default;
};

/// `step` is the one reached so far.
[[nodiscard]] ClaudeBackoffDecision claudeBackoffDecision(const HTTPClassification& classification,
                                                          int step, std::optional<Date> resetAt,
                                                          Date now);

/// How long the `step`th refused token in a row holds off requests: 300 s doubled, at most 3600 s.
[[nodiscard]] Seconds claudeAuthBackoff(int step);
/// A back-off of a refused token gives way to a user's explicit request, which has a minimum
/// interval of 0; no other one does.
[[nodiscard]] bool claudeMayBypassBackoff(Seconds minInterval, bool backoffIsAuth) noexcept;
/// The last good reading answers, without a request: it is younger than `minInterval`.
[[nodiscard]] bool claudeShouldServeCache(std::optional<Instant> lastSuccess, Seconds minInterval,
                                          bool hasUsableCache, Instant now) noexcept;

/// How long a failed read of the login holds off the next one: 60 s doubled, at most
/// `claudeReadRetryCap`.
[[nodiscard]] Seconds claudeReadRetryDelay(int failureStreak);
/// The failure stands until the user asks again: a dialog may still be on screen.
[[nodiscard]] bool claudeReadLatches(const KeychainReadError& error) noexcept;
/// The security tool was started before the read failed.
[[nodiscard]] bool claudeReadSpawned(const KeychainReadError& error) noexcept;
[[nodiscard]] Health claudeReadHealth(const KeychainReadError& error);
/// Of a request without an answer. `tokenExpired`: the login that it was made with had expired.
[[nodiscard]] Health claudeTransientHealth(bool tokenExpired);

/// A reading may be written to the cache: it was not cleared since the read started.
[[nodiscard]] bool claudeMayPersist(int startedEpoch, int currentEpoch) noexcept;
/// Whether Claude is read at all in this refresh.
[[nodiscard]] bool claudeReadsThisCycle(bool turnedOff) noexcept;
/// A result is published only if the decision to read that was sampled when the work started still
/// holds.
[[nodiscard]] bool claudePublishesThisResult(bool sampledRead, bool readsNow) noexcept;

/// What is published for Claude while the user has it turned off.
[[nodiscard]] ProviderSnapshot turnedOffClaudeSnapshot(Date at);

}  // namespace marigold
