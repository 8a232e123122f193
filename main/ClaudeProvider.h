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
///     the last job succeeded, and that is younger than  | the last good reading
///       the interval                                    |
///     a read of the login failed and may not be         | the last good reading with the
///     repeated yet (once latched, not before a retry)   |   failure's health
///     a back-off is in force, and is not one that the   | the last good reading with the
///     user's request bypasses                           |   back-off's health
///     otherwise                                         | the result of a new job
///
/// A failed read stands before the back-off because it is the newer of the two. A question asked
/// after the reading was forgotten does not take the result of a job from before: it waits for the
/// job's end and is then asked anew. That result is told to those who asked for it and remembered
/// nowhere. A retry asked while a job is out takes its result only if it is a good one, and is
/// asked anew otherwise. A job that does not come back in time stays the only one, but nobody waits
/// for it longer.
///
/// Time is counted on the continuous clock: setting the wall clock, which only what is shown is
/// dated by, makes nothing happen sooner or later.
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
  /// A `minInterval` of 0 stands for the user's explicit request. `now` is not looked at.
  void poll(double minInterval, Date now, Answer answer) override;
  /// A back-off that the server asked for, by its status or its payload, stays in force.
  void retryNow(Answer answer) override;
  [[nodiscard]] bool isReadLatched() const override;
  /// Ends every back-off and forgets how often there was one in a row.
  void resetBackoff() override;
  void stopAsking() override;
  void forgetCache() override;

  /// The last usable reading, taken from an answer or restored from the cache.
  [[nodiscard]] const std::optional<ProviderSnapshot>& lastGood() const { return lastGood_; }

 private:
  struct Question {
    int epoch = 0;  // the cache's when it was asked
    double minInterval = 0;
    bool isRetry = false;  // what stood in its way is to be cleared once more
    Answer answer;
  };
  struct Finding;  // what a job found out

  static Finding readAndAsk(const KeychainRead& read, HTTPTransport& transport,
                            const std::string& userAgent);
  void ask(Question question);
  // Clears what an explicit retry may.
  void unblock();
  void startJob();
  void giveUpWaiting();
  void land(int startedEpoch, const Finding& finding);
  [[nodiscard]] ProviderSnapshot settle(int startedEpoch, const Finding& finding, Date now);
  [[nodiscard]] ProviderSnapshot settleFailedRead(const KeychainReadError& error, Date now);
  [[nodiscard]] ProviderSnapshot settlePayload(int startedEpoch, const Finding& finding, Date now);
  [[nodiscard]] ProviderSnapshot backOff(Seconds length, const Health& health, bool isAuth,
                                         Date now);
  void endBackoff();
  // What answers without a job, if anything does.
  [[nodiscard]] std::optional<ProviderSnapshot> known(double minInterval) const;
  // What there is to show, with the health that says why there is nothing newer, and since when.
  [[nodiscard]] ProviderSnapshot showing(const Health& health, Date since) const;
  // The continuous clock, as a date that means nothing by itself.
  [[nodiscard]] Date steadyNow() const;
  // It waits for, or was answered from, what was forgotten since, and may be asked anew.
  [[nodiscard]] bool mayAskAnew(const Question& question) const;
  void tell(Answer answer, ProviderSnapshot snapshot);

  EventLoop& home_;
  Executor& worker_;
  HTTPTransport& transport_;
  KeychainRead keychainRead_;
  DiskCache cache_;
  std::string userAgent_;

  // All of the continuous clock: `backoffUntil_`, `lastNetworkSuccess_`, `readRetryAfter_`.
  Date backoffUntil_ = distantPast;         // no request before it
  std::optional<Health> backoffHealth_;     // why
  Date backoffSince_;                       // when that was found out
  int backoffStep_ = 0;                     // throttled requests and server errors in a row
  bool backoffIsAuth_ = false;              // it is about the token
  int authStep_ = 0;                        // refused tokens in a row
  std::optional<Date> lastNetworkSuccess_;  // absent when something else came after it
  std::optional<ProviderSnapshot> lastGood_;
  std::optional<ProviderSnapshot> noLimits_;  // the last answer, when it had no windows
  bool isFetching_ = false;                   // a job is out
  Date jobStarted_;                           // when
  std::optional<Health> readBlocked_;         // of the failed read of the login that stands
  Date readRetryAfter_ = distantPast;         // no read before it; `distantFuture` once latched
  int readFailureStreak_ = 0;                 // failed reads in a row that started the tool
  std::optional<Date> lastReadFailure_;
  int cacheEpoch_ = 0;  // how often the reading was forgotten
  int stopEpoch_ = 0;   // questions asked in an earlier one are not asked anew
  std::vector<Question> waiting_;
  Timer patience_;                                          // runs while there are some
  std::shared_ptr<char> alive_ = std::make_shared<char>();  // held weakly by jobs
};

}  // namespace marigold
