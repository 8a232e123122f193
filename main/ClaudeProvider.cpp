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

// How long a job is waited for: 7 s for the login and 15 s for the request are its own limits.
constexpr Seconds longestWait{30};

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

void ClaudeProvider::poll(double minInterval, Date /*now*/, Answer answer) {
  ask({.epoch = cacheEpoch_, .minInterval = minInterval, .answer = std::move(answer)});
}

void ClaudeProvider::retryNow(Answer answer) {
  if (!isFetching_) {
    unblock();
  }
  ask({.epoch = cacheEpoch_,
       .minInterval = 0,
       .isRetry = isFetching_,
       .answer = std::move(answer)});
}

void ClaudeProvider::ask(Question question) {
  if (isFetching_) {
    worker_.post([] {});  // a worker that could not start is tried again
  } else if (auto answer = known(question.minInterval)) {
    home_.post([this, alive = std::weak_ptr(alive_), question = std::move(question),
                snapshot = *std::move(answer)]() mutable {
      if (!alive.expired() && question.epoch != cacheEpoch_ && mayAskAnew(question)) {
        question.epoch = cacheEpoch_;
        ask(std::move(question));
      } else {
        question.answer(std::move(snapshot));
      }
    });
    return;
  } else {
    startJob();
  }
  if (waiting_.empty()) {
    patience_ = home_.callAfter(longestWait, [this] { giveUpWaiting(); });
  }
  waiting_.push_back(std::move(question));
}

void ClaudeProvider::unblock() {
  readBlocked_.reset();
  if (backoffIsAuth_ || backoffHealth_ == claudeTransientHealth(false)) {
    endBackoff();
  }
}

bool ClaudeProvider::isReadLatched() const {
  return readBlocked_ && readRetryAfter_ == distantFuture;
}

void ClaudeProvider::resetBackoff() {
  endBackoff();
  backoffStep_ = 0;
  authStep_ = 0;
}

void ClaudeProvider::stopAsking() {
  stopEpoch_ = ++cacheEpoch_;
}

void ClaudeProvider::forgetCache() {
  lastGood_.reset();
  if (noLimits_) {
    noLimits_->extraNote.reset();
  }
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
  jobStarted_ = home_.date();
  worker_.post([this, alive = std::weak_ptr(alive_), &home = home_, &transport = transport_,
                read = keychainRead_, userAgent = userAgent_, epoch = cacheEpoch_] {
    home.post([this, alive, epoch, finding = readAndAsk(read, transport, userAgent)] {
      if (!alive.expired()) {
        land(epoch, finding);
      }
    });
  });
}

void ClaudeProvider::giveUpWaiting() {
  // The login's home may hang, as a network's can. Another job would only hang behind this one.
  const ProviderSnapshot snapshot =
      showing(claudeReadHealth({.kind = KeychainReadError::Kind::timedOut}), jobStarted_);
  for (Question& question : std::exchange(waiting_, {})) {
    tell(std::move(question.answer), snapshot);
  }
}

void ClaudeProvider::land(int startedEpoch, const Finding& finding) {
  isFetching_ = false;
  patience_.cancel();
  const ProviderSnapshot snapshot = settle(startedEpoch, finding, home_.date());
  for (Question& question : std::exchange(waiting_, {})) {
    const bool isAnswered =
        question.epoch == startedEpoch && (!question.isRetry || snapshot.health == Health::ok());
    if (isAnswered || !mayAskAnew(question)) {
      tell(std::move(question.answer), snapshot);
      continue;
    }
    if (std::exchange(question.isRetry, false)) {
      unblock();
    }
    question.epoch = cacheEpoch_;
    ask(std::move(question));
  }
}

ProviderSnapshot ClaudeProvider::settle(int startedEpoch, const Finding& finding, Date now) {
  lastNetworkSuccess_.reset();
  if (finding.readError) {
    return settleFailedRead(*finding.readError, now);
  }
  readBlocked_.reset();
  readFailureStreak_ = 0;
  if (!finding.answer) {
    if (backoffIsAuth_ && backoffHealth_ && backoffUntil_ > steadyNow() + shortHoldOff()) {
      return showing(*backoffHealth_, backoffSince_);  // silence does not cut short a refusal
    }
    const bool isExpired = finding.expiresAt && *finding.expiresAt < now;
    return backOff(shortHoldOff(), claudeTransientHealth(isExpired), isExpired, now);
  }
  const HTTPClassification status = classify(finding.answer->status, finding.answer->retryAfter);
  switch (status.kind) {
    case HTTPClassification::Kind::ok:
      return settlePayload(startedEpoch, finding, now);
    case HTTPClassification::Kind::unauthorized:
      ++authStep_;
      return backOff(Seconds{claudeAuthBackoff(authStep_)}, claudeTransientHealth(true), true, now);
    case HTTPClassification::Kind::throttled:
    case HTTPClassification::Kind::serverError:
      break;
  }
  const ClaudeBackoffDecision decision =
      claudeBackoffDecision(status, backoffStep_, resetAt(*finding.answer, now), now);
  backoffStep_ = decision.step;
  return backOff(decision.until - now, decision.health, false, now);
}

ProviderSnapshot ClaudeProvider::settleFailedRead(const KeychainReadError& error, Date now) {
  // What was decided without starting the tool costs nothing to look at again: it may change at any
  // time, as when the user unlocks the keychain, and can bring up no dialog.
  readFailureStreak_ = claudeReadSpawned(error) ? readFailureStreak_ + 1 : 0;
  lastReadFailure_ = now;
  readRetryAfter_ = claudeReadLatches(error)
                        ? distantFuture
                        : steadyNow() + Seconds{claudeReadRetryDelay(readFailureStreak_)};
  readBlocked_ = claudeReadHealth(error);
  return showing(*readBlocked_, now);
}

ProviderSnapshot ClaudeProvider::settlePayload(int startedEpoch, const Finding& finding, Date now) {
  const auto hold = [&](Seconds length, const Health& health) {
    return backOff(length, health, false, now);
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
      noLimits_ = snapshot;
      if (!mayRemember) {
        noLimits_->extraNote.reset();
      }
      (void)hold(shortHoldOff(), Health::ok());
      return snapshot;
    case ClaudePayloadVerdict::usable:
      break;
  }
  if (mayRemember) {
    lastNetworkSuccess_ = steadyNow();
    lastGood_ = snapshot;
    worker_.post([cache = cache_, reading = snapshot.cached()] { cache.save(reading); });
  }
  return snapshot;
}

ProviderSnapshot ClaudeProvider::backOff(Seconds length, const Health& health, bool isAuth,
                                         Date now) {
  backoffUntil_ = steadyNow() + length;
  backoffHealth_ = health;
  backoffSince_ = now;
  backoffIsAuth_ = isAuth;
  return showing(health, now);
}

void ClaudeProvider::endBackoff() {
  backoffUntil_ = distantPast;
  backoffHealth_.reset();
  backoffIsAuth_ = false;
  noLimits_.reset();
}

std::optional<ProviderSnapshot> ClaudeProvider::known(double minInterval) const {
  const Date now = steadyNow();
  if (lastGood_ &&
      claudeShouldServeCache(lastNetworkSuccess_, minInterval, lastGood_->isUsable(), now)) {
    return lastGood_;
  }
  if (readBlocked_ && lastReadFailure_ && now < readRetryAfter_) {
    return showing(*readBlocked_, *lastReadFailure_);
  }
  if (backoffHealth_ && now < backoffUntil_ &&
      !claudeMayBypassBackoff(minInterval, backoffIsAuth_)) {
    return showing(*backoffHealth_, backoffSince_);
  }
  return std::nullopt;
}

ProviderSnapshot ClaudeProvider::showing(const Health& health, Date since) const {
  if (health == Health::ok() && noLimits_) {
    return *noLimits_;
  }
  if (lastGood_ && health != Health::ok() && !healthWithholdsReading(health)) {
    return lastGood_->withHealth(health);
  }
  return {.provider = id, .windows = {}, .capturedAt = since, .health = health};
}

Date ClaudeProvider::steadyNow() const {
  return Date{home_.now().time_since_epoch()};
}

bool ClaudeProvider::mayAskAnew(const Question& question) const {
  return question.epoch >= stopEpoch_;
}

void ClaudeProvider::tell(Answer answer, ProviderSnapshot snapshot) {
  home_.post([answer = std::move(answer), snapshot = std::move(snapshot)] { answer(snapshot); });
}

}  // namespace marigold
