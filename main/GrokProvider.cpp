#include "GrokProvider.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

namespace marigold {

namespace {

using BillingScan = GrokProvider::BillingScan;

// The first `needle` in `in`, or null. memmem, which is POSIX, is several times faster than the
// searches of the language's own library.
const char* firstIn(std::string_view in, std::string_view needle) {
  return static_cast<const char*>(::memmem(in.data(), in.size(), needle.data(), needle.size()));
}

// Finds what a scan looks for among whole lines, the newest first.
class LineSearch {
 public:
  LineSearch(BillingScan& scan, Date fallback, std::size_t maxLine)
      : scan_(scan), fallback_(fallback), maxLine_(maxLine) {}

  /// Ends at a billing line with a percentage. `offset`: of the first line in the file.
  void examine(std::string_view lines, std::int64_t offset) {
    // In blocks from the end, where it usually lies.
    constexpr std::size_t block = 16UL * 1024;
    for (std::size_t end = lines.size(); end > 0 && !scan_.usable;) {
      const std::size_t start = end - std::min(end, block);
      findMarks(lines, start, end);
      end = start;
      std::size_t examined = lines.size();
      for (auto mark = marks_.begin(); mark != marks_.end() && !scan_.usable; ++mark) {
        if (*mark < examined) {
          examined = lines.rfind('\n', *mark) + 1;  // 0 when there is none before
          const std::size_t length = std::min(lines.find('\n', *mark), lines.size()) - examined;
          examineLine(lines.substr(examined, length), offset + static_cast<std::int64_t>(examined));
          end = std::min(start, examined);
        }
      }
    }
  }

 private:
  // Where in [start, end) something begins that is worth a look, the last place first.
  void findMarks(std::string_view lines, std::size_t start, std::size_t end) {
    marks_.clear();
    const auto find = [&](std::string_view needle) {
      const std::string_view upTo = lines.substr(0, end + needle.size() - 1);
      std::size_t from = start;
      while (const char* found = firstIn(upTo.substr(from), needle)) {
        marks_.push_back(static_cast<std::size_t>(found - lines.data()));
        from = marks_.back() + 1;
      }
    };
    find(GrokBillingLine::billingMsg);
    if (!scan_.activity) {
      find(GrokActivityLine::inferenceDoneMsg);
      find(GrokActivityLine::rateLimitedKind);
    }
    std::ranges::sort(marks_, std::greater<>());
  }

  void examineLine(std::string_view line, std::int64_t at) {
    if (line.size() > maxLine_) {
      return;
    }
    if (firstIn(line, GrokBillingLine::billingMsg) != nullptr) {
      if (auto located = decoded<GrokBillingLine>(line, at); located && located->line.isBilling()) {
        if (located->line.hasCreditPercent()) {
          scan_.usable = located;
        }
        if (!scan_.newest) {
          scan_.newest = std::move(located);
        }
      }
    } else if (!scan_.activity) {
      auto located = decoded<GrokActivityLine>(line, at);
      if (located && (located->line.isInferenceDone() || located->line.isQuotaExhaustion())) {
        scan_.activity = std::move(located);
      }
    }
  }

  template <class Record>
  [[nodiscard]] std::optional<GrokLocated<Record>> decoded(std::string_view line,
                                                           std::int64_t at) const {
    auto record = Record::decode(line);
    if (!record) {
      return std::nullopt;
    }
    const Date ts = record->ts.value_or(fallback_);
    return GrokLocated<Record>{.line = std::move(*record), .ts = ts, .at = at};
  }

  BillingScan& scan_;
  Date fallback_;
  std::size_t maxLine_;
  std::vector<std::size_t> marks_;
};

// The scan of a file that has grown since `memo` was made, from what is new in it and the memo;
// nothing when that does not do.
std::optional<BillingScan> extended(const std::optional<GrokProvider::ScanMemo>& memo,
                                    const BoundedFile& in, Date fallback,
                                    const GrokProvider::Limits& limits) {
  if (!memo || memo->fileNumber != in.fileNumber() || in.size() <= memo->size ||
      !memo->scan.lineEnd || !memo->stamp) {
    return std::nullopt;
  }
  // A line that was still being written is read again.
  const std::int64_t floor = *memo->scan.lineEnd;
  if (in.size() - floor >= static_cast<std::int64_t>(limits.searchBudget) ||
      GrokProvider::stamp(in, memo->size) != memo->stamp) {
    return std::nullopt;
  }
  BillingScan region = GrokProvider::scanBilling(in, fallback, limits, floor);
  if (GrokProvider::regionUsable(region, in.size(), floor, limits.searchBudget)) {
    return GrokProvider::merged(region, memo->scan, in.size(), limits.searchBudget);
  }
  // A scan of the whole file would end at the same line.
  return region.usable ? std::optional(std::move(region)) : std::nullopt;
}

// The line `fresh` if there is one, else `known` if it lies behind the offset `horizon`.
template <class Line>
std::optional<Line> later(const std::optional<Line>& fresh, const std::optional<Line>& known,
                          std::int64_t horizon) {
  const bool tooFar = horizon > 0 && known && known->at <= horizon;
  return fresh || tooFar ? fresh : known;
}

// Whether `reading` is newer than what was written at `date`. One from the future was taken under a
// wrong clock and is newer than nothing.
bool isNewer(const std::optional<ProviderSnapshot>& reading, Date date, Date now) {
  return reading && date < reading->capturedAt && reading->capturedAt <= now;
}

// Gives a line without a time of its own the one that it had when it was seen before.
template <class Line>
void keepTime(std::optional<Line>& found, const std::optional<Line>& known) {
  if (found && known && !found->line.ts && found->at == known->at) {
    found->ts = known->ts;
  }
}

// Whether the percentage of `reading` goes on holding although a later line about the same account
// tells none.
bool outlasts(const ProviderSnapshot& reading, const GrokBillingLine& later, Date now) {
  const auto end = reading.soonestReset();
  const auto laterEnd = later.periodEnd();
  const double age = secondsBetween(reading.capturedAt, now);
  return age >= 0 && (end && laterEnd ? GrokProvider::sameMinute(*end, *laterEnd)
                                      : age <= GrokProvider::healReachSeconds);
}

bool isInForce(const GrokLocated<GrokActivityLine>& activity, Date now) {
  return activity.line.isQuotaExhaustion() &&
         activity.line.rollsOverAt(activity.ts).value_or(distantFuture) > now;
}

ProviderSnapshot withoutWindows(Date capturedAt, Health health) {
  return {.provider = GrokProvider::id, .capturedAt = capturedAt, .health = std::move(health)};
}

}  // namespace

GrokPaths::GrokPaths(const Surroundings& surroundings)
    : home_(surroundings.toolHome("GROK_HOME", "~/.grok")) {}

BillingScan GrokProvider::scanBilling(const BoundedFile& in, Date fallback, const Limits& limits,
                                      std::int64_t floor) {
  BillingScan scan{.size = in.size()};
  LineSearch search(scan, fallback, limits.maxLine);
  const std::int64_t limit =
      std::max(floor, in.size() - static_cast<std::int64_t>(limits.searchBudget));
  std::int64_t at = std::max(limit, in.size());
  const auto range = static_cast<std::size_t>(at - limit);
  // A chunk and, behind it, the beginning of the line that the chunk before cut.
  std::string buffer(std::min(range, limits.chunkSize + limits.maxLine), '\0');
  std::size_t carried = 0;
  // The bytes up to the next newline are not wanted: of a line still being written, or too long.
  bool skipping = true;
  while (at > limit) {
    const std::size_t length = std::min(limits.chunkSize, static_cast<std::size_t>(at - limit));
    at -= static_cast<std::int64_t>(length);
    const std::span<char> chunk(buffer.data(), length);
    std::memmove(chunk.data() + length, chunk.data(), carried);
    if (in.readAt(at, chunk).value_or(0) != length) {
      scan.cutShort = true;
      return scan;
    }
    std::string_view lines(buffer.data(), length + std::exchange(carried, 0));
    if (skipping) {
      const std::size_t newline = lines.rfind('\n');
      if (newline == std::string_view::npos) {
        continue;
      }
      lines = lines.substr(0, newline);
      if (!scan.lineEnd) {
        scan.lineEnd = at + static_cast<std::int64_t>(newline) + 1;
      }
    }
    std::int64_t offset = at;
    if (at > floor) {
      // The first line may begin further back.
      carried = std::min(lines.find('\n'), lines.size());
      const std::size_t rest = std::min(carried + 1, lines.size());
      lines.remove_prefix(rest);
      offset += static_cast<std::int64_t>(rest);
      skipping = carried > limits.maxLine;
      carried = skipping ? 0 : carried;
    }
    search.examine(lines, offset);
    if (scan.usable) {
      return scan;
    }
  }
  scan.reachedFloor = at <= floor;
  return scan;
}

bool GrokProvider::regionUsable(const BillingScan& scan, std::int64_t statSize, std::int64_t floor,
                                std::size_t searchBudget) {
  if (scan.size < statSize || scan.size - floor >= static_cast<std::int64_t>(searchBudget)) {
    return false;
  }
  return scan.reachedFloor || (scan.usable && scan.newest && scan.activity);
}

BillingScan GrokProvider::merged(const BillingScan& region, const BillingScan& over,
                                 std::int64_t size, std::size_t searchBudget) {
  const std::int64_t horizon = size - static_cast<std::int64_t>(searchBudget);
  return {.usable = later(region.usable, over.usable, horizon),
          .newest = later(region.newest, over.newest, horizon),
          .activity = later(region.activity, over.activity, horizon),
          .lineEnd = region.lineEnd ? region.lineEnd : over.lineEnd,
          .size = size,
          .reachedFloor = true};
}

std::optional<std::string> GrokProvider::stamp(const BoundedFile& of, std::int64_t endingAt) {
  std::string bytes(stampBytes, '\0');
  const std::int64_t start = endingAt - static_cast<std::int64_t>(stampBytes);
  if (start < 0 || of.readAt(start, bytes).value_or(0) != stampBytes) {
    return std::nullopt;
  }
  return bytes;
}

bool GrokProvider::sameMinute(Date a, Date b) noexcept {
  const auto minutes = [](Date date) { return std::round(date.time_since_epoch().count() / 60); };
  return minutes(a) == minutes(b);
}

std::pair<BillingScan, std::optional<GrokProvider::ScanMemo>> GrokProvider::memoizedScan(
    const BoundedFile& in, Date fallback, const std::optional<ScanMemo>& memo, Date now,
    const Limits& limits) {
  if (memo && memo->fileNumber == in.fileNumber() && memo->size == in.size() &&
      memo->mtime == in.modified() && memo->fullAt <= now &&
      secondsBetween(memo->fullAt, now) < memoMaxAge) {
    return {memo->scan, memo};
  }
  auto scan = extended(memo, in, fallback, limits);
  if (!scan) {
    scan = scanBilling(in, fallback, limits, 0);
  }
  std::optional<ScanMemo> renewed;
  if (!scan->cutShort) {
    auto ending = stamp(in, in.size());
    // A scan of the same bytes; what has grown was not scanned as a whole.
    if (memo && memo->fileNumber == in.fileNumber() && memo->size == in.size() &&
        memo->stamp == ending) {
      keepTime(scan->usable, memo->scan.usable);
      keepTime(scan->newest, memo->scan.newest);
      keepTime(scan->activity, memo->scan.activity);
    }
    renewed = {.fileNumber = in.fileNumber(),
               .size = in.size(),
               .mtime = in.modified(),
               .scan = *scan,
               .stamp = std::move(ending),
               .fullAt = now};
  }
  return {std::move(*scan), std::move(renewed)};
}

GrokProvider::GrokProvider(GrokPaths paths, DiskCache cache, Date now)
    : paths_(std::move(paths)), cache_(std::move(cache)) {
  if (const auto cached = cache_.load(id)) {
    lastGood_ = cached->restored(now);
    planLabel_ = lastGood_->planLabel;
  }
}

ProviderSnapshot GrokProvider::fetch(Date now) {
  ProviderSnapshot answer = read(now);
  if (!exhaustion_ || !answer.isUsable() || answer.capturedAt >= exhaustion_->writtenAt ||
      exhaustion_->writtenAt > now) {
    return answer;
  }
  if (!exhaustion_->overSince) {
    exhaustion_->overSince = now;
  }
  const double since = secondsBetween(*exhaustion_->overSince, now);
  if (since < 0 || since >= memoMaxAge) {
    exhaustion_.reset();
    return answer;
  }
  answer.windows.clear();
  return lastProcessed_ ? answer.withHealth(Health::stale("no recent usage")) : answer;
}

ProviderSnapshot GrokProvider::rescan(Date now) {
  scanMemo_.reset();
  return fetch(now);
}

ProviderSnapshot GrokProvider::fetch(const std::set<std::string>& /*changed*/, Date now) {
  return fetch(now);
}

void GrokProvider::forgetCache() {
  lastGood_.reset();
  lastProcessed_.reset();
  scanMemo_.reset();
  exhaustion_.reset();
  rolling_.reset();
  planLabel_.reset();
  cache_.remove(id);
}

ProviderSnapshot GrokProvider::read(Date now) {
  std::string path = paths_.unifiedLog();
  const auto log = BoundedFile::open(path);
  if (!log) {
    lastProcessed_.reset();
    scanMemo_.reset();
    if (log.error() != FileFailure::missing) {
      return decide({}, now);
    }
    return lastGood_ ? lastGood_->withHealth(Health::stale("Grok not running"))
                     : withoutWindows(now, Health::notInstalled("Grok not detected"));
  }
  lastProcessed_ = {.path = std::move(path), .size = log->size(), .mtime = log->modified()};
  auto [scan, memo] = memoizedScan(*log, log->modified(), scanMemo_, now, {});
  scanMemo_ = std::move(memo);
  return decide(scan, now);
}

ProviderSnapshot GrokProvider::decide(const BillingScan& scan, Date now) {
  const auto& usable = scan.usable;
  const auto& newest = scan.newest;
  // Then what else was found lies behind it, whatever the times say.
  const bool fromLog = usable && !isNewer(lastGood_, usable->ts, now);
  const auto known = fromLog ? usable->line.snapshot(usable->ts, now) : lastGood_;
  const auto knownIsNewer = [&](Date date) { return !fromLog && isNewer(known, date, now); };
  const bool replaced = newest && !newest->line.hasCreditPercent() && !knownIsNewer(newest->ts) &&
                        !(known && outlasts(*known, newest->line, now));
  keep(replaced ? std::nullopt : known);
  for (const auto* billing : {&usable, &newest}) {
    if (const auto tier = *billing ? (*billing)->line.tier() : std::nullopt) {
      planLabel_ = grokPlanLabel(tier);
    }
  }

  const auto rolling = std::exchange(rolling_, std::nullopt);
  const auto& activity = scan.activity || usable ? scan.activity : rolling;
  if (activity && isInForce(*activity, now) && !knownIsNewer(activity->ts) &&
      !(replaced && activity->ts < newest->ts)) {
    exhaustion_ = {.writtenAt = activity->ts, .overSince = {}};
    if (activity->line.rollingWindowHours()) {
      rolling_ = activity;
    }
    ProviderSnapshot answer = activity->line.exhaustedSnapshot({}, activity->ts, now);
    answer.planLabel = planLabel_;
    return answer;
  }
  if (replaced) {
    ProviderSnapshot answer = newest->line.snapshot(newest->ts, now);
    answer.planLabel = planLabel_;
    answer.extraNote = grokNoPercentNote;
    return answer.withHealth(Health::stale("no quota reported"));
  }
  if (!known) {
    return withoutWindows(now, Health::reconnect("Run Grok once to see usage"));
  }
  const double age = secondsBetween(known->capturedAt, now);
  const bool told = newest || (lastProcessed_ && age <= healReachSeconds);
  return known->withHealth(told ? grokHealth(age) : Health::stale("no recent usage"));
}

void GrokProvider::keep(std::optional<ProviderSnapshot> reading) {
  if (reading && (!lastGood_ || reading->cached() != lastGood_->cached())) {
    cache_.save(reading->cached());
  } else if (!reading && lastGood_) {
    cache_.remove(id);
  }
  lastGood_ = std::move(reading);
}

}  // namespace marigold
