#pragma once

#include <optional>

#include "ProviderSnapshot.h"

// Rules that pace the requests to Anthropic's usage endpoint. All pure; times come in.

namespace marigold {

/// Shortest times between two requests, in seconds: while usage rests, while it moves, and when the
/// user is looking.
inline constexpr double backgroundMinInterval = 900;
inline constexpr double activeMinInterval = 450;
inline constexpr double onDemandMinInterval = 60;

/// How long, in seconds, a rise in usage counts as evidence that usage is moving.
inline constexpr double claudeMovementEvidenceTTL = 1800;

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
  /// The shortest time between two background requests, in seconds: `activeMinInterval` while usage
  /// is seen to rise, else `backgroundMinInterval`.
  [[nodiscard]] double interval(Date now) const;
};

/// Whether Claude is read at all in this refresh.
[[nodiscard]] bool claudeReadsThisCycle(bool turnedOff) noexcept;
/// A result is published only if the decision to read that was sampled when the work started still
/// holds.
[[nodiscard]] bool claudePublishesThisResult(bool sampledRead, bool readsNow) noexcept;

/// What is published for Claude while the user has it turned off.
[[nodiscard]] ProviderSnapshot turnedOffClaudeSnapshot(Date at);

}  // namespace marigold
