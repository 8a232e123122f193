#pragma once

#include <optional>

#include "claude/ClaudeCredentials.h"
#include "model/ProviderSnapshot.h"

// What keeps Claude from being asked for a while, and what is told meanwhile. Plain values; the
// times come in.

namespace marigold {

/// A reading of Claude without windows, only a reason.
[[nodiscard]] ProviderSnapshot claudeSnapshotWithout(const Health& health, Date since);

/// No request to Anthropic's server before a time.
struct Backoff {
  Instant until;                         ///< no request before it
  std::optional<ProviderSnapshot> told;  ///< why, or an answer without windows; absent when ended
  bool isAuth = false;                   ///< it is about the token: the user's request bypasses it
  int step = 0;                          ///< throttled requests and server errors in a row
  int authStep = 0;                      ///< refused tokens in a row

  /// Gives what is told from now on, as the others do.
  const ProviderSnapshot& hold(Instant untilThen, ProviderSnapshot why, bool aboutToken);
  /// It is over; how often there was one in a row stays known.
  void end();
  /// What answers a question with `minInterval`; null when it may lead to a request.
  [[nodiscard]] const ProviderSnapshot* answer(Seconds minInterval, Instant now) const;
  /// The server throttles or fails: only time ends it.
  [[nodiscard]] bool isTheServers() const;
};

/// No read of the login before a time, since one failed.
struct ReadBlock {
  Instant retryAfter;                    ///< no read before it
  std::optional<ProviderSnapshot> told;  ///< why; absent when nothing failed or the user asked
  bool latched = false;                  ///< no read before the user asks
  int failureStreak = 0;                 ///< failed reads in a row that started the tool

  const ProviderSnapshot& fail(const KeychainReadError& error, Instant now, Date date);
  /// A read has not come back since `began`; it may yet.
  const ProviderSnapshot& latch(Date began);
  /// The user asked; how many reads failed stays known.
  void lift();
  /// What answers a question; null when it may lead to a read.
  [[nodiscard]] const ProviderSnapshot* answer(Instant now) const;
};

}  // namespace marigold
