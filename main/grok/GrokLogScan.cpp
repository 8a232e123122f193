#include "grok/GrokLogScan.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

namespace marigold {

namespace {

using BillingScan = GrokLogScan::BillingScan;

// The first `needle` in `in`, or null. memmem, which is POSIX, is several times faster than the
// searches of the language's own library.
const char* firstIn(std::string_view in, std::string_view needle) {
  return static_cast<const char*>(::memmem(in.data(), in.size(), needle.data(), needle.size()));
}

// Finds what a scan looks for among whole lines, the newest first.
class LineSearch {
 public:
  LineSearch(BillingScan& scan, Date fallback, Date now, std::size_t maxLine)
      : scan_(scan), fallback_(fallback), now_(now), maxLine_(maxLine) {}

  /// Nothing further back matters.
  [[nodiscard]] bool isOver() const { return isFound(scan_.usable); }

  /// `offset`: of the first line in the file.
  void examine(std::string_view lines, std::int64_t offset) {
    // In blocks from the end, where it usually lies.
    constexpr std::size_t block = 16UL * 1024;
    for (std::size_t end = lines.size(); end > 0 && !isOver();) {
      const std::size_t start = end - std::min(end, block);
      findMarks(lines, start, end);
      end = start;
      std::size_t examined = lines.size();
      for (auto mark = marks_.begin(); mark != marks_.end() && !isOver(); ++mark) {
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
  // One from the future goes as soon as there is another.
  template <class Located>
  [[nodiscard]] bool isFound(const std::optional<Located>& line) const {
    return line && !isFromFuture(line->ts, now_);
  }
  template <class Located>
  void find(std::optional<Located>& line, const Located& found) {
    const bool fromFuture = isFromFuture(found.ts, now_);
    scan_.metFuture |= fromFuture;
    if (!line || (!fromFuture && !isFound(line))) {
      line = found;
    }
  }

  // Where in [start, end) something begins that is worth a look, the last place first.
  void findMarks(std::string_view lines, std::size_t start, std::size_t end) {
    marks_.clear();
    const auto mark = [&](std::string_view needle) {
      const std::string_view upTo = lines.substr(0, end + needle.size() - 1);
      std::size_t from = start;
      while (const char* found = firstIn(upTo.substr(from), needle)) {
        marks_.push_back(static_cast<std::size_t>(found - lines.data()));
        from = marks_.back() + 1;
      }
    };
    mark(GrokBillingLine::billingMsg);
    if (!isFound(scan_.activity)) {
      mark(GrokActivityLine::inferenceDoneMsg);
      mark(GrokActivityLine::rateLimitedKind);
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
          find(scan_.usable, *located);
        }
        find(scan_.newest, *located);
      }
    } else if (!isFound(scan_.activity)) {
      auto located = decoded<GrokActivityLine>(line, at);
      if (located && (located->line.isInferenceDone() || located->line.isQuotaExhaustion())) {
        find(scan_.activity, *located);
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
  Date now_;
  std::size_t maxLine_;
  std::vector<std::size_t> marks_;
};

// What `scan` found, it found at its clock's time and at `now` alike.
bool standsAt(const BillingScan& scan, Date now) {
  const auto stands = [now](const auto& line) { return !line || !isFromFuture(line->ts, now); };
  return stands(scan.usable) && stands(scan.newest) && stands(scan.activity);
}

// The scan of a file that has grown since `memo` was made, from what is new in it and the memo;
// nothing when that does not do.
std::optional<BillingScan> extended(const std::optional<GrokLogScan::ScanMemo>& memo,
                                    const BoundedFile& in, Date fallback, Date now,
                                    const GrokLogScan::Limits& limits) {
  if (!memo || !standsAt(memo->scan, now) || memo->fileNumber != in.fileNumber() ||
      in.size() <= memo->size || !memo->scan.lineEnd || !memo->stamp) {
    return std::nullopt;
  }
  // A line that was still being written is read again.
  const std::int64_t floor = *memo->scan.lineEnd;
  if (in.size() - floor >= static_cast<std::int64_t>(limits.searchBudget) ||
      GrokLogScan::stamp(in, memo->size) != memo->stamp) {
    return std::nullopt;
  }
  BillingScan region = GrokLogScan::scanBilling(in, fallback, now, limits, floor);
  if (region.metFuture) {
    return std::nullopt;  // what the memo holds may be the better one
  }
  if (GrokLogScan::regionUsable(region, in.size(), floor, limits.searchBudget)) {
    return GrokLogScan::merged(region, memo->scan, in.size(), limits.searchBudget);
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

// Gives a line without a time of its own the one that it had when it was seen before.
template <class Line>
void keepTime(std::optional<Line>& found, const std::optional<Line>& known) {
  if (found && known && !found->line.ts && found->at == known->at) {
    found->ts = known->ts;
  }
}

}  // namespace

BillingScan GrokLogScan::scanBilling(const BoundedFile& in, Date fallback, Date now,
                                     const Limits& limits, std::int64_t floor) {
  BillingScan scan{.size = in.size()};
  LineSearch search(scan, fallback, now, limits.maxLine);
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
    if (search.isOver()) {
      return scan;
    }
  }
  scan.reachedFloor = at <= floor;
  return scan;
}

bool GrokLogScan::regionUsable(const BillingScan& scan, std::int64_t statSize, std::int64_t floor,
                               std::size_t searchBudget) {
  if (scan.size < statSize || scan.size - floor >= static_cast<std::int64_t>(searchBudget)) {
    return false;
  }
  return scan.reachedFloor || (scan.usable && scan.newest && scan.activity);
}

BillingScan GrokLogScan::merged(const BillingScan& region, const BillingScan& over,
                                std::int64_t size, std::size_t searchBudget) {
  const std::int64_t horizon = size - static_cast<std::int64_t>(searchBudget);
  return {.usable = later(region.usable, over.usable, horizon),
          .newest = later(region.newest, over.newest, horizon),
          .activity = later(region.activity, over.activity, horizon),
          .lineEnd = region.lineEnd ? region.lineEnd : over.lineEnd,
          .size = size,
          .reachedFloor = true};
}

std::optional<std::string> GrokLogScan::stamp(const BoundedFile& of, std::int64_t endingAt) {
  std::string bytes(stampBytes, '\0');
  const std::int64_t start = endingAt - static_cast<std::int64_t>(stampBytes);
  if (start < 0 || of.readAt(start, bytes).value_or(0) != stampBytes) {
    return std::nullopt;
  }
  return bytes;
}

std::pair<BillingScan, std::optional<GrokLogScan::ScanMemo>> GrokLogScan::memoizedScan(
    const BoundedFile& in, Date fallback, const std::optional<ScanMemo>& memo, Date now,
    const Limits& limits) {
  if (memo && memo->fileNumber == in.fileNumber() && memo->size == in.size() &&
      memo->mtime == in.modified() && memo->fullAt <= now &&
      secondsBetween(memo->fullAt, now) < memoMaxAge && standsAt(memo->scan, now)) {
    return {memo->scan, memo};
  }
  auto scan = extended(memo, in, fallback, now, limits);
  if (!scan) {
    scan = scanBilling(in, fallback, now, limits, 0);
  }
  std::optional<ScanMemo> renewed;
  // Once its time has come, a line from the future counts.
  if (!scan->cutShort && !scan->metFuture) {
    auto ending = stamp(in, in.size());
    // A scan of the same bytes; what has grown was not scanned as a whole.
    if (memo && memo->fileNumber == in.fileNumber() && memo->size == in.size() &&
        memo->stamp == ending) {
      keepTime(scan->usable, memo->scan.usable);
      keepTime(scan->newest, memo->scan.newest);
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

}  // namespace marigold
