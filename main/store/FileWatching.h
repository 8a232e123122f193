#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/EventLoop.h"
#include "base/Lifetime.h"
#include "ports/EventStream.h"

namespace marigold {

/// What changed below a watched directory since it was last read.
struct WatchBatch {
  /// A storm of changes becomes one request to scan again.
  static constexpr std::size_t maxPaths = 256;

  std::set<std::string> paths;  ///< changed items; empty when `mustRescan`
  bool mustRescan = false;      ///< paths cannot be trusted, everything must be looked at again

  void merge(std::set<std::string> morePaths, bool rescan);

  bool operator==(const WatchBatch&) const = default;
};

/// The batch for one delivery of an event stream: the paths, and the `eventFlag`s of each.
[[nodiscard]] WatchBatch watchBatch(std::set<std::string> paths,
                                    const std::vector<std::uint32_t>& flags);

/// Watches one provider's directory, Codex's or Grok's, through an event stream.
class CodexWatcher {
 public:
  using OnChange = std::function<void(WatchBatch)>;

  /// An idle watcher. `onChange` is called on a thread of the stream's own. `source` must outlive
  /// the watcher.
  CodexWatcher(EventStreamSource& source, std::string path, OnChange onChange);

  /// Begins to watch, and says so. Does nothing while watching; stays idle when the system refuses.
  bool start();
  /// Once it returns, `onChange` is not called until the next start. Not from `onChange`.
  void stop();

 private:
  EventStreamSource& source_;
  std::string path_;
  OnChange onChange_;
  std::unique_ptr<EventStream> stream_;  // present while watching
};

/// Merges batches and paces the reading they ask for, so that reading takes no more than a fixed
/// share of the time. Lives on the loop's thread.
///
/// A loop of runs starts with the first batch and ends when none is left; within it one run follows
/// another. `cancel` ends the loop but cannot end work that is under way: a later batch does not
/// wait for it, only for the pause, so work that never reports its end blocks nothing.
class WatchCoalescer {
 public:
  using Done = std::function<void()>;
  /// Reads what the batch names and then calls `Done` once on the loop's thread: at once, later, or
  /// never if it was cancelled. A call after that, or after the coalescer is gone, is harmless.
  using BatchWork = std::function<void(WatchBatch, Done)>;

  static constexpr Seconds defaultMinGap{1};
  static constexpr int defaultCostFactor = 4;
  static constexpr Seconds maxGap{30};

  /// Pauses last at least `minGap` and `costFactor` times the run before, at most `maxGap`.
  WatchCoalescer(EventLoop& loop, BatchWork work, Seconds minGap = defaultMinGap,
                 int costFactor = defaultCostFactor);

  /// The pause to keep after a run that took `cost`.
  [[nodiscard]] static Seconds gap(Seconds minGap, int costFactor, Seconds cost);

  /// Has `batch` worked, together with what else comes until then. Never runs the work inline.
  void submit(WatchBatch batch);
  /// Drops what waits. The pause after the last run is still kept.
  void cancel();

 private:
  void startLoop();
  void drain();
  void ended(std::uint64_t loopID, Instant start);

  EventLoop& loop_;
  BatchWork work_;
  Seconds minGap_;
  int costFactor_;
  std::optional<WatchBatch> pending_;
  bool loops_ = false;
  std::uint64_t loopID_ = 0;  // changes with each run and each cancel
  Timer next_;
  std::optional<Instant> lastEnd_;
  Seconds lastCost_{0};
  Lifetime lifetime_;
};

}  // namespace marigold
