#include "store/FileWatching.h"

#include <algorithm>
#include <utility>

namespace marigold {

namespace {

// How long the system may gather events before it delivers them.
constexpr Seconds eventLatency{0.5};

bool forcesRescan(std::uint32_t flags) {
  constexpr std::uint32_t pathsUnknown = eventFlag::mustScanSubDirs | eventFlag::userDropped |
                                         eventFlag::kernelDropped | eventFlag::rootChanged;
  // A directory that comes or goes brings or takes files that no event names.
  constexpr std::uint32_t cameOrWent =
      eventFlag::itemCreated | eventFlag::itemRemoved | eventFlag::itemRenamed;
  return (flags & pathsUnknown) != 0 ||
         ((flags & eventFlag::itemIsDir) != 0 && (flags & cameOrWent) != 0);
}

WatchBatch delivered(const std::vector<FileEvent>& events) {
  std::set<std::string> paths;
  std::vector<std::uint32_t> flags;
  for (const FileEvent& event : events) {
    paths.insert(event.path);
    flags.push_back(event.flags);
  }
  return events.empty() ? WatchBatch{.mustRescan = true} : watchBatch(std::move(paths), flags);
}

}  // namespace

void WatchBatch::merge(std::set<std::string> morePaths, bool rescan) {
  mustRescan = mustRescan || rescan;
  if (!mustRescan) {
    paths.merge(morePaths);
    mustRescan = paths.size() > maxPaths;
  }
  if (mustRescan) {
    paths.clear();
  }
}

WatchBatch watchBatch(std::set<std::string> paths, const std::vector<std::uint32_t>& flags) {
  WatchBatch batch;
  batch.merge(std::move(paths), std::ranges::any_of(flags, forcesRescan));
  return batch;
}

CodexWatcher::CodexWatcher(EventStreamSource& source, std::string path, OnChange onChange)
    : source_(source), path_(std::move(path)), onChange_(std::move(onChange)) {}

bool CodexWatcher::start() {
  if (stream_) {
    return false;
  }
  stream_ = source_.open(path_, eventLatency,
                         [onChange = onChange_](const std::vector<FileEvent>& events) {
                           onChange(delivered(events));
                         });
  return stream_ != nullptr;
}

void CodexWatcher::stop() {
  stream_.reset();
}

WatchCoalescer::WatchCoalescer(EventLoop& loop, BatchWork work, Seconds minGap, int costFactor)
    : loop_(loop), work_(std::move(work)), minGap_(minGap), costFactor_(costFactor) {}

Seconds WatchCoalescer::gap(Seconds minGap, int costFactor, Seconds cost) {
  return std::min(std::max(cost * costFactor, minGap), maxGap);
}

void WatchCoalescer::submit(WatchBatch batch) {
  if (!pending_) {
    pending_.emplace();
  }
  pending_->merge(std::move(batch.paths), batch.mustRescan);
  if (!loops_) {
    startLoop();
  }
}

void WatchCoalescer::cancel() {
  ++loopID_;
  loops_ = false;
  next_.cancel();
  pending_.reset();
}

void WatchCoalescer::startLoop() {
  loops_ = true;
  ++loopID_;
  Instant start = loop_.now();
  if (lastEnd_) {
    const Seconds pause = gap(minGap_, costFactor_, lastCost_);
    start = std::max(start, *lastEnd_ + continuousDuration(pause));
  }
  next_ = loop_.callAt(start, [this] { drain(); });
}

void WatchCoalescer::drain() {
  WatchBatch batch = std::exchange(pending_, std::nullopt).value_or(WatchBatch{});
  Done done =
      lifetime_.guard([this, loopID = loopID_, start = loop_.now()] { ended(loopID, start); });
  // A copy, and nothing after it: the work may destroy the coalescer.
  const BatchWork work = work_;
  work(std::move(batch), std::move(done));
}

void WatchCoalescer::ended(std::uint64_t loopID, Instant start) {
  // A cancelled loop's run counts too: it took its share of the time.
  lastEnd_ = loop_.now();
  lastCost_ = *lastEnd_ - start;
  if (loopID != loopID_) {
    return;
  }
  loops_ = false;
  if (pending_) {
    startLoop();
  }
}

}  // namespace marigold
