#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ClaudeCredentials.h"
#include "ClaudeReader.h"
#include "ClaudeUsage.h"
#include "DiskCache.h"
#include "EventLoop.h"
#include "ProviderSnapshot.h"
#include "ports/HTTPTransport.h"

namespace marigold {

/// Asks Anthropic for the usage behind the login of Claude Code.
///
/// Reading the login and the request it is for are one job on the worker, so the token never leaves
/// that job. There is one job at a time. A question is answered by the first row that applies:
///
///     a job is out                                      | its result
///     the last success is younger than the interval     | the last good reading
///     a read of the login failed and may not be         | the last good reading with the
///     repeated yet (once latched, not before a retry)   |   failure's health
///     a back-off is in force, and is not one that the   | the last good reading with the
///     user's request bypasses                           |   back-off's health
///     otherwise                                         | the result of a new job
///
/// A failed read stands before the back-off because it is the newer of the two. A question asked
/// after the reading was forgotten does not take the result of a job from before: it waits for the
/// job's end and is then asked anew. That result is told to those who asked for it and remembered
/// nowhere.
class ClaudeProvider final : public ClaudeReader {
 public:
  static constexpr ProviderID id = ProviderID::claude;

  /// Reads the login. Runs on the worker, where it may block.
  using KeychainRead = std::function<std::expected<ClaudeCredentials, KeychainReadError>()>;

  /// Restores the cached reading. `home` is the main loop; it, `worker` and `transport` must
  /// outlive this and the worker's last job.
  ClaudeProvider(EventLoop& home, Executor& worker, HTTPTransport& transport,
                 KeychainRead keychainRead, DiskCache cache,
                 std::string userAgent = std::string(defaultUserAgent));

  /// The regular read, at the pace of the background.
  void fetch(Answer answer);
  /// A `minInterval` of 0 stands for the user's explicit request.
  void poll(double minInterval, Date now, Answer answer) override;
  /// A back-off after throttling, a server error or silence stays in force.
  void retryNow(Answer answer) override;
  [[nodiscard]] bool isReadLatched() const override;
  /// Ends every back-off and forgets how often there was one in a row.
  void resetBackoff() override;
  void forgetCache() override;

  /// The last usable reading, taken from an answer or restored from the cache.
  [[nodiscard]] const std::optional<ProviderSnapshot>& lastGood() const { return lastGood_; }

 private:
  struct Question {
    int epoch = 0;  // the cache's when it was asked
    double minInterval = 0;
    Answer answer;
  };
  struct Finding;  // what a job found out

  static Finding readAndAsk(const KeychainRead& read, HTTPTransport& transport,
                            const std::string& userAgent);
  void startJob();
  void land(int startedEpoch, const Finding& finding);
  [[nodiscard]] ProviderSnapshot settle(int startedEpoch, const Finding& finding, Date now);
  [[nodiscard]] ProviderSnapshot settleFailedRead(const KeychainReadError& error, Date now);
  [[nodiscard]] ProviderSnapshot settlePayload(int startedEpoch, const Finding& finding, Date now);
  [[nodiscard]] ProviderSnapshot backOff(Date until, const Health& health, bool isAuth, Date now);
  void endBackoff();
  // The health of what forbids a job now, if anything does.
  [[nodiscard]] std::optional<Health> whyNotNow(double minInterval, Date now) const;
  // What there is to show, with the health that says why there is nothing newer.
  [[nodiscard]] ProviderSnapshot showing(const Health& health, Date now) const;
  void tell(Answer answer, ProviderSnapshot snapshot);

  EventLoop& home_;
  Executor& worker_;
  HTTPTransport& transport_;
  KeychainRead keychainRead_;
  DiskCache cache_;
  std::string userAgent_;

  Date backoffUntil_ = distantPast;      // no request before it
  std::optional<Health> backoffHealth_;  // why
  int backoffStep_ = 0;                  // throttled requests and server errors in a row
  bool backoffIsAuth_ = false;           // it is about the token
  int authStep_ = 0;                     // refused tokens in a row
  std::optional<Date> lastNetworkSuccess_;
  std::optional<ProviderSnapshot> lastGood_;
  std::optional<ProviderSnapshot> noLimits_;  // the last answer, when it had no windows
  bool isFetching_ = false;                   // a job is out
  std::optional<Health> readBlocked_;         // of the failed read of the login that stands
  Date readRetryAfter_ = distantPast;         // no read before it; `distantFuture` once latched
  int readFailureStreak_ = 0;                 // failed reads in a row that started the tool
  std::optional<Date> lastReadFailure_;
  int cacheEpoch_ = 0;  // how often the reading was forgotten
  std::vector<Question> waiting_;
  std::shared_ptr<char> alive_ = std::make_shared<char>();  // held weakly by jobs
};

}  // namespace marigold
