#include "claude/ClaudeProvider.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

#include "claude/ClaudePacing.h"
#include "claude/ClaudeTexts.h"
#include "claude/HTTPClassification.h"

namespace marigold {

namespace {

// How long requests are held off after silence or an answer that tells no windows.
std::chrono::seconds shortHoldOff() {
  return backoffDelay(1, {});
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

  // The job: reads the login, tells `asking` when it is read, and makes the request it is for.
  static Finding readAndAsk(const KeychainRead& read, HTTPTransport& transport,
                            const std::string& userAgent,
                            const std::function<void(std::optional<Date> expiresAt)>& asking) {
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
    asking(finding.expiresAt);
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
  poll(backgroundMinInterval, home_.now(), std::move(answer));
}

void ClaudeProvider::poll(Seconds minInterval, Instant now, Answer answer) {
  isStopped_ = false;
  ask({.minInterval = minInterval, .answer = std::move(answer)}, now);
}

void ClaudeProvider::retryNow(Answer answer) {
  isStopped_ = false;
  if (!job_) {
    unblock();
  }
  ask({.isRetry = job_.has_value(), .answer = std::move(answer)}, home_.now());
}

void ClaudeProvider::ask(Question question, Instant now) {
  if (auto answer = known(question.minInterval, now)) {
    answerFromMemory(std::move(question), *std::move(answer));
    return;
  }
  if (!job_) {
    startJob();
  }
  waitForJob(std::move(question));
}

void ClaudeProvider::answerFromMemory(Question question, ProviderSnapshot snapshot) {
  home_.post(lifetime_.guard(
      [this, epoch = cacheEpoch_, question = std::move(question), snapshot = std::move(snapshot)] {
        if (epoch == cacheEpoch_ || isStopped_) {
          question.answer(snapshot);
        } else {
          ask(question, home_.now());  // what was known is forgotten
        }
      }));
}

void ClaudeProvider::waitForJob(Question question) {
  if (waiting_.questions.empty()) {
    waiting_.patience = home_.callAfter(longestWait, [this] { giveUpWaiting(); });
  }
  waiting_.questions.push_back(std::move(question));
}

std::vector<ClaudeProvider::Question> ClaudeProvider::Waiting::take() {
  patience.cancel();
  return std::exchange(questions, {});
}

void ClaudeProvider::unblock() {
  readBlock_.lift();
  if (!backoff_.isTheServers()) {
    backoff_.end();
  }
}

void ClaudeProvider::resetBackoff() {
  backoff_ = {};
}

void ClaudeProvider::stopAsking() {
  isStopped_ = true;
}

void ClaudeProvider::forgetCache() {
  lastGood_.reset();
  if (backoff_.told) {
    backoff_.told->extraNote.reset();
  }
  lastNetworkSuccess_.reset();
  ++cacheEpoch_;
  // Behind a reading that is about to be written.
  worker_.post([cache = cache_] { cache.remove(id); });
}

void ClaudeProvider::startJob() {
  job_ = {.began = home_.date(), .epoch = cacheEpoch_};
  const auto asks = lifetime_.guard([this](std::optional<Date> expiresAt) {
    job_->asks = true;
    job_->loginExpiresAt = expiresAt;
  });
  const auto land = lifetime_.guard([this](const Finding& finding) { this->land(finding); });
  worker_.post([&home = home_, &transport = transport_, read = keychainRead_,
                userAgent = userAgent_, asks, land] {
    const auto asking = [&](std::optional<Date> expiresAt) {
      home.post([asks, expiresAt] { asks(expiresAt); });
    };
    home.post([land, finding = Finding::readAndAsk(read, transport, userAgent, asking)] {
      land(finding);
    });
  });
}

void ClaudeProvider::giveUpWaiting() {
  if (!job_) {
    return;
  }
  // The login's home may hang, as a network's can. Another job would only hang behind this one.
  Job& job = *job_;
  const bool isExpired = job.loginExpiresAt && *job.loginExpiresAt < home_.date();
  const ProviderSnapshot& why =
      job.late.emplace(job.asks ? claudeSnapshotWithout(claudeTransientHealth(isExpired), job.began)
                                : readBlock_.latch(job.began));
  for (Question& question : waiting_.take()) {
    tell(std::move(question.answer), showing(why));
  }
}

void ClaudeProvider::land(const Finding& finding) {
  const Job job = std::exchange(job_, std::nullopt).value_or(Job{});
  const ProviderSnapshot snapshot = settle(job.epoch, finding);
  if (job.late && onLateResult) {
    tell(onLateResult, snapshot);  // behind what was told when it was late
  }
  for (Question& question : waiting_.take()) {
    if (question.isRetry && snapshot.health != Health::ok() && !isStopped_) {
      if (!job_) {
        unblock();
      }
      question.isRetry = false;
      ask(std::move(question), home_.now());
    } else {
      tell(std::move(question.answer), snapshot);
    }
  }
}

ProviderSnapshot ClaudeProvider::settle(int startedEpoch, const Finding& finding) {
  const Date now = home_.date();
  if (finding.readError) {
    return showing(readBlock_.fail(*finding.readError, home_.now(), now));
  }
  readBlock_ = {};
  if (!finding.answer) {
    const ProviderSnapshot* standing = backoff_.answer(shortHoldOff(), home_.now());
    if (standing != nullptr && backoff_.isAuth) {  // a refused token stays refused
      backoff_.until = std::max(backoff_.until, home_.now() + shortHoldOff());
      return showing(*standing);
    }
    const bool isExpired = finding.expiresAt && *finding.expiresAt < now;
    return backOff(shortHoldOff(), claudeTransientHealth(isExpired), isExpired, now);
  }
  const HTTPClassification status = classify(finding.answer->status, finding.answer->retryAfter);
  switch (status.kind) {
    case HTTPClassification::Kind::ok:
      return settlePayload(startedEpoch, finding, now);
    case HTTPClassification::Kind::unauthorized:
      return backOff(claudeAuthBackoff(++backoff_.authStep), claudeTransientHealth(true), true,
                     now);
    case HTTPClassification::Kind::throttled:
    case HTTPClassification::Kind::serverError:
      break;
  }
  const ClaudeBackoffDecision decision =
      claudeBackoffDecision(status, backoff_.step, resetAt(*finding.answer, now), now);
  backoff_.step = decision.step;
  return backOff(decision.until - now, decision.health, false, now);
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
  switch (
      claudePayloadVerdict(snapshot.isUsable(), usage.recognizedEnvelope, usage.rejectedValue())) {
    case ClaudePayloadVerdict::unrecognized:
      return hold(shortHoldOff(), unreadable(claudeStaleReason::unexpectedPayload));
    case ClaudePayloadVerdict::rejectedValues:
      return hold(rejectedValueHoldOff, unreadable(claudeStaleReason::unreadableValue));
    case ClaudePayloadVerdict::noActiveWindows:
      lastNetworkSuccess_.reset();  // it told of windows that are no more
      backoff_.hold(home_.now() + shortHoldOff(), snapshot, false);
      return snapshot;
    case ClaudePayloadVerdict::usable:
      break;
  }
  if (isStopped_) {
    return snapshot;
  }
  lastNetworkSuccess_ = home_.now();
  lastGood_ = snapshot;
  if (claudeMayPersist(startedEpoch, cacheEpoch_)) {
    worker_.post([cache = cache_, reading = snapshot.cached()] { cache.save(reading); });
  }
  return snapshot;
}

ProviderSnapshot ClaudeProvider::backOff(Seconds length, const Health& health, bool isAuth,
                                         Date now) {
  return showing(backoff_.hold(home_.now() + continuousDuration(length),
                               claudeSnapshotWithout(health, now), isAuth));
}

std::optional<ProviderSnapshot> ClaudeProvider::known(Seconds minInterval, Instant now) const {
  if (job_) {
    return job_->late ? std::optional(showing(*job_->late)) : std::nullopt;
  }
  if (lastGood_ && claudeShouldServeCache(lastNetworkSuccess_, minInterval, true, now)) {
    return lastGood_;
  }
  if (const ProviderSnapshot* told = readBlock_.answer(now)) {
    return showing(*told);
  }
  if (const ProviderSnapshot* told = backoff_.answer(minInterval, now)) {
    return showing(*told);
  }
  return std::nullopt;
}

ProviderSnapshot ClaudeProvider::showing(const ProviderSnapshot& told) const {
  const bool isNews = told.health == Health::ok() || healthWithholdsReading(told.health);
  return lastGood_ && !isNews ? lastGood_->withHealth(told.health) : told;
}

void ClaudeProvider::tell(Answer answer, ProviderSnapshot snapshot) {
  home_.post([answer = std::move(answer), snapshot = std::move(snapshot)] { answer(snapshot); });
}

}  // namespace marigold
