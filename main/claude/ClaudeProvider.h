#pragma once

#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/EventLoop.h"
#include "base/Lifetime.h"
#include "claude/ClaudeCredentials.h"
#include "claude/ClaudeHolds.h"
#include "claude/ClaudeReader.h"
#include "claude/ClaudeUsage.h"
#include "model/DiskCache.h"
#include "model/ProviderSnapshot.h"
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
/// A failed read stands before the back-off because it is the newer of the two; a failure does not
/// end the success before it. A retry asked while a job is out takes its result only if it is a
/// good one, and is asked anew otherwise.
///
/// A job that does not come back in time stays the only one, but nobody waits for it longer: it is
/// told by the stage that it has reached, the login's read, which latches, or the request. Its
/// result is told by `onLateResult` when it comes, and ends that latch.
///
/// A reading that arrives after the stored one was forgotten counts like any other, but is not
/// written to the disk. One that arrives after Claude was turned off is remembered nowhere.
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
  /// A `minInterval` of 0 stands for the user's explicit request.
  void poll(Seconds minInterval, Instant now, Answer answer) override;
  void retryNow(Answer answer) override;
  [[nodiscard]] bool isReadLatched() const override { return readBlock_.latched; }
  /// Ends every back-off and forgets how often there was one in a row.
  void resetBackoff();
  void stopAsking() override;
  void forgetCache() override;

 private:
  struct Question {
    Seconds minInterval{0};
    bool isRetry = false;  // what stood in its way is to be cleared once more
    Answer answer;
  };
  // The questions that wait for the job that is out.
  struct Waiting {
    std::vector<Question> questions;
    Timer patience;  // runs while there are some

    [[nodiscard]] std::vector<Question> take();
  };
  // The job that is out.
  struct Job {
    Date began;
    int epoch = 0;                         // the cache's when it began
    bool asks = false;                     // the login is read and the request is out
    std::optional<Date> loginExpiresAt;    // once it asks
    std::optional<ProviderSnapshot> late;  // why nobody waits for it any more
  };
  struct Finding;  // what a job found out

  // Answers from memory, or sees to it that there is a job and waits for it.
  void ask(Question question, Instant now);
  void answerFromMemory(Question question, ProviderSnapshot snapshot);
  void startJob();
  void waitForJob(Question question);
  void giveUpWaiting();
  // Clears what an explicit retry may.
  void unblock();
  void land(const Finding& finding);
  [[nodiscard]] ProviderSnapshot settle(int startedEpoch, const Finding& finding);
  [[nodiscard]] ProviderSnapshot settlePayload(int startedEpoch, const Finding& finding, Date now);
  [[nodiscard]] ProviderSnapshot backOff(Seconds length, const Health& health, bool isAuth,
                                         Date now);
  // What answers without waiting for a job, if anything does.
  [[nodiscard]] std::optional<ProviderSnapshot> known(Seconds minInterval, Instant now) const;
  // What there is to show in place of a bare reason: the last good reading with it.
  [[nodiscard]] ProviderSnapshot showing(const ProviderSnapshot& told) const;
  void tell(Answer answer, ProviderSnapshot snapshot);

  EventLoop& home_;
  Executor& worker_;
  HTTPTransport& transport_;
  KeychainRead keychainRead_;
  DiskCache cache_;
  std::string userAgent_;

  Backoff backoff_;
  ReadBlock readBlock_;
  Waiting waiting_;
  std::optional<Job> job_;
  std::optional<Instant> lastNetworkSuccess_;  // of `lastGood_`; absent where it was restored
  std::optional<ProviderSnapshot> lastGood_;   // usable: from an answer or restored from the cache
  int cacheEpoch_ = 0;                         // how often the reading was forgotten
  bool isStopped_ = false;                     // Claude was turned off and nothing asked since
  Lifetime lifetime_;
};

}  // namespace marigold
