#include "ClaudeProvider.h"

#include <algorithm>
#include <utility>

#include "ClaudeHealth.h"
#include "ClaudePacing.h"

namespace marigold {

namespace {

// How long requests are held off after silence or an answer that tells no windows.
Seconds shortHoldOff() {
  return Seconds{backoffDelay(1, {})};
}

// The same after values that are no percentages, which will not be better soon.
constexpr Seconds rejectedValueHoldOff{900};

// Whether `token` can stand in a header. One with a line feed would add a header of its own.
bool isVisible(std::string_view token) {
  return !token.empty() && std::ranges::all_of(token, [](char c) { return c > ' ' && c <= '~'; });
}

// The later of the two reset headers.
std::optional<Date> resetAt(const HTTPAnswer& answer, Date now) {
  return std::max(parseUnifiedReset(answer.unifiedReset, now),
                  parseUnifiedReset(answer.unifiedFiveHourReset, now));
}

}  // namespace

struct ClaudeProvider::Finding {
  std::optional<KeychainReadError> readError;
  std::optional<Date> expiresAt;  // of the login
  std::optional<std::string> subscriptionType;
  std::optional<HTTPAnswer> answer;  // its body is used up
  std::optional<ClaudeUsage> usage;
};

ClaudeProvider::ClaudeProvider(EventLoop& home, Executor& worker, HTTPTransport& transport,
                               KeychainRead keychainRead, DiskCache cache, std::string userAgent)
    : home_(home),
      worker_(worker),
      transport_(transport),
      keychainRead_(std::move(keychainRead)),
      cache_(std::move(cache)),
      userAgent_(std::move(userAgent)) {
  if (const auto cached = cache_.load(id)) {
    lastGood_ = cached->restored(home_.date());
  }
}

void ClaudeProvider::fetch(Answer answer) {
  poll(backgroundMinInterval, home_.date(), std::move(answer));
}

void ClaudeProvider::poll(double minInterval, Date now, Answer answer) {
  if (!isFetching_) {
    if (lastGood_ &&
        claudeShouldServeCache(lastNetworkSuccess_, minInterval, lastGood_->isUsable(), now)) {
      tell(std::move(answer), *lastGood_);
      return;
    }
    if (const auto health = whyNotNow(minInterval, now)) {
      tell(std::move(answer), showing(*health, now));
      return;
    }
    startJob();
  }
  waiting_.push_back(
      {.epoch = cacheEpoch_, .minInterval = minInterval, .answer = std::move(answer)});
}

void ClaudeProvider::retryNow(Answer answer) {
  readBlocked_.reset();
  if (backoffIsAuth_) {
    endBackoff();
  }
  poll(0, home_.date(), std::move(answer));
}

bool ClaudeProvider::isReadLatched() const {
  return readBlocked_ && readRetryAfter_ == distantFuture;
}

void ClaudeProvider::resetBackoff() {
  endBackoff();
  backoffStep_ = 0;
  authStep_ = 0;
}

void ClaudeProvider::forgetCache() {
  lastGood_.reset();
  noLimits_.reset();
  lastNetworkSuccess_.reset();
  ++cacheEpoch_;
  // Behind a reading that is about to be written.
  worker_.post([cache = cache_] { cache.remove(id); });
}

ClaudeProvider::Finding ClaudeProvider::readAndAsk(const KeychainRead& read,
                                                   HTTPTransport& transport,
                                                   const std::string& userAgent) {
  Finding finding;
  auto login = read();
  if (!login) {
    finding.readError = login.error();
    return finding;
  }
  if (!isVisible(login->claudeAiOauth.accessToken.expose())) {
    finding.readError = {.kind = KeychainReadError::Kind::decode};
    return finding;
  }
  finding.expiresAt = login->expiresAt();
  finding.subscriptionType = std::move(login->claudeAiOauth.subscriptionType);
  finding.answer =
      transport.send(claudeUsageRequest(std::move(login->claudeAiOauth.accessToken), userAgent));
  if (finding.answer) {
    const std::string body = std::exchange(finding.answer->body, {});
    if (!finding.answer->bodyIsCut) {
      finding.usage = ClaudeUsage::decode(body);
    }
  }
  return finding;
}

void ClaudeProvider::startJob() {
  isFetching_ = true;
  worker_.post([this, alive = std::weak_ptr(alive_), &home = home_, &transport = transport_,
                read = keychainRead_, userAgent = userAgent_, epoch = cacheEpoch_] {
    home.post([this, alive, epoch, finding = readAndAsk(read, transport, userAgent)] {
      if (!alive.expired()) {
        land(epoch, finding);
      }
    });
  });
}

void ClaudeProvider::land(int startedEpoch, const Finding& finding) {
  const Date now = home_.date();
  isFetching_ = false;
  const ProviderSnapshot snapshot = settle(startedEpoch, finding, now);
  for (Question& question : std::exchange(waiting_, {})) {
    if (question.epoch == startedEpoch) {
      tell(std::move(question.answer), snapshot);
    } else {
      poll(question.minInterval, now, std::move(question.answer));
    }
  }
}

ProviderSnapshot ClaudeProvider::settle(int startedEpoch, const Finding& finding, Date now) {
  if (finding.readError) {
    return settleFailedRead(*finding.readError, now);
  }
  readBlocked_.reset();
  readFailureStreak_ = 0;
  if (!finding.answer) {
    const bool isExpired = finding.expiresAt && *finding.expiresAt < now;
    return backOff(now + shortHoldOff(), claudeTransientHealth(isExpired), isExpired, now);
  }
  const HTTPClassification status = classify(finding.answer->status, finding.answer->retryAfter);
  switch (status.kind) {
    case HTTPClassification::Kind::ok:
      return settlePayload(startedEpoch, finding, now);
    case HTTPClassification::Kind::unauthorized:
      ++authStep_;
      return backOff(now + Seconds{claudeAuthBackoff(authStep_)}, claudeTransientHealth(true), true,
                     now);
    case HTTPClassification::Kind::throttled:
    case HTTPClassification::Kind::serverError:
      break;
  }
  const ClaudeBackoffDecision decision =
      claudeBackoffDecision(status, backoffStep_, resetAt(*finding.answer, now), now);
  backoffStep_ = decision.step;
  return backOff(decision.until, decision.health, false, now);
}

ProviderSnapshot ClaudeProvider::settleFailedRead(const KeychainReadError& error, Date now) {
  // What was decided without starting the tool costs nothing to look at again: it may change at any
  // time, as when the user unlocks the keychain, and can bring up no dialog.
  readFailureStreak_ = claudeReadSpawned(error) ? readFailureStreak_ + 1 : 0;
  lastReadFailure_ = now;
  readRetryAfter_ = claudeReadLatches(error)
                        ? distantFuture
                        : now + Seconds{claudeReadRetryDelay(readFailureStreak_)};
  readBlocked_ = claudeReadHealth(error);
  return showing(*readBlocked_, now);
}

ProviderSnapshot ClaudeProvider::settlePayload(int startedEpoch, const Finding& finding, Date now) {
  const auto hold = [&](Seconds length, const Health& health) {
    return backOff(now + length, health, false, now);
  };
  const auto unreadable = [](std::string_view reason) {
    return Health::stale(std::string(reason));
  };
  resetBackoff();
  if (!finding.usage) {
    return hold(shortHoldOff(), unreadable(claudeStaleReason::unexpectedPayload));
  }
  const ClaudeUsage& usage = *finding.usage;
  ProviderSnapshot snapshot = usage.snapshot(now, finding.subscriptionType);
  const bool mayRemember = claudeMayPersist(startedEpoch, cacheEpoch_);
  switch (
      claudePayloadVerdict(snapshot.isUsable(), usage.recognizedEnvelope, usage.rejectedValue())) {
    case ClaudePayloadVerdict::unrecognized:
      return hold(shortHoldOff(), unreadable(claudeStaleReason::unexpectedPayload));
    case ClaudePayloadVerdict::rejectedValues:
      return hold(rejectedValueHoldOff, unreadable(claudeStaleReason::unreadableValue));
    case ClaudePayloadVerdict::noActiveWindows:
      if (mayRemember) {
        noLimits_ = snapshot;
      }
      (void)hold(shortHoldOff(), Health::ok());
      return snapshot;
    case ClaudePayloadVerdict::usable:
      break;
  }
  if (mayRemember) {
    lastNetworkSuccess_ = now;
    lastGood_ = snapshot;
    worker_.post([cache = cache_, reading = snapshot.cached()] { cache.save(reading); });
  }
  return snapshot;
}

ProviderSnapshot ClaudeProvider::backOff(Date until, const Health& health, bool isAuth, Date now) {
  backoffUntil_ = until;
  backoffHealth_ = health;
  backoffIsAuth_ = isAuth;
  return showing(health, now);
}

void ClaudeProvider::endBackoff() {
  backoffUntil_ = distantPast;
  backoffHealth_.reset();
  backoffIsAuth_ = false;
  noLimits_.reset();
}

std::optional<Health> ClaudeProvider::whyNotNow(double minInterval, Date now) const {
  // A failure in the future happened under a wrong clock, which says nothing about how long to
  // wait; neither does a back-off that is longer than any.
  const bool failedLately = lastReadFailure_ && *lastReadFailure_ <= now && now < readRetryAfter_;
  if (isReadLatched() || (readBlocked_ && failedLately)) {
    return readBlocked_;
  }
  const double left = secondsBetween(now, backoffUntil_);
  const bool backsOff = left > 0 && left <= claudeCooldownCap;
  return backsOff && !claudeMayBypassBackoff(minInterval, backoffIsAuth_) ? backoffHealth_
                                                                          : std::nullopt;
}

ProviderSnapshot ClaudeProvider::showing(const Health& health, Date now) const {
  if (health == Health::ok() && noLimits_) {
    return *noLimits_;
  }
  if (lastGood_ && health != Health::ok() && !healthWithholdsReading(health)) {
    return lastGood_->withHealth(health);
  }
  return {.provider = id, .windows = {}, .capturedAt = now, .health = health};
}

void ClaudeProvider::tell(Answer answer, ProviderSnapshot snapshot) {
  home_.post([answer = std::move(answer), snapshot = std::move(snapshot)] { answer(snapshot); });
}

}  // namespace marigold
