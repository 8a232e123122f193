#include "claude/ClaudeHolds.h"

#include <utility>

#include "claude/ClaudePacing.h"

namespace marigold {

ProviderSnapshot claudeSnapshotWithout(const Health& health, Date since) {
  return {.provider = ProviderID::claude, .windows = {}, .capturedAt = since, .health = health};
}

const ProviderSnapshot& Backoff::hold(Instant untilThen, ProviderSnapshot why, bool aboutToken) {
  until = untilThen;
  isAuth = aboutToken;
  return told.emplace(std::move(why));
}

void Backoff::end() {
  told.reset();
  isAuth = false;
}

const ProviderSnapshot* Backoff::answer(Seconds minInterval, Instant now) const {
  return told && now < until && !claudeMayBypassBackoff(minInterval, isAuth) ? &*told : nullptr;
}

bool Backoff::isTheServers() const {
  return told && (told->health.kind() == Health::Kind::rateLimited ||
                  told->health.kind() == Health::Kind::serverError);
}

const ProviderSnapshot& ReadBlock::fail(const KeychainReadError& error, Instant now, Date date) {
  // What was decided without starting the tool costs nothing to look at again: it may change at any
  // time, as when the user unlocks the keychain, and can bring up no dialog.
  failureStreak = claudeReadSpawned(error) ? failureStreak + 1 : 0;
  retryAfter = now + continuousDuration(claudeReadRetryDelay(failureStreak));
  latched = claudeReadLatches(error);
  return told.emplace(claudeSnapshotWithout(claudeReadHealth(error), date));
}

const ProviderSnapshot& ReadBlock::latch(Date began) {
  latched = true;
  return told.emplace(
      claudeSnapshotWithout(claudeReadHealth({.kind = KeychainReadError::Kind::timedOut}), began));
}

void ReadBlock::lift() {
  told.reset();
  latched = false;
}

const ProviderSnapshot* ReadBlock::answer(Instant now) const {
  return told && (latched || now < retryAfter) ? &*told : nullptr;
}

}  // namespace marigold
