#include "codex/RolloutSearch.h"

#include <algorithm>
#include <utility>

namespace marigold {

namespace {

// What every line with a record contains. Looking for it first spares the decoding of the others.
constexpr std::string_view recordMark = "rate_limits";

// A file's tail is read from its end in steps: the tool writes a record with every answer, so the
// last one usually lies within the first step.
constexpr std::size_t firstStep = 64UL * 1024;

// The end of the last occurrence of `recordMark` in `bytes`, or 0. Blocks are taken from the end;
// inside one the search for a rare character of the mark is the library's fastest.
std::size_t endOfLastMark(std::string_view bytes) {
  constexpr std::size_t block = 4096;
  constexpr std::size_t anchor = recordMark.find('_');
  std::size_t found = 0;
  for (std::size_t end = bytes.size(); found == 0 && end > 0; end -= std::min(end, block)) {
    const std::string_view upToEnd = bytes.substr(0, end);
    std::size_t at = end - std::min(end, block);
    while ((at = upToEnd.find(recordMark[anchor], at)) != std::string_view::npos) {
      if (at >= anchor && bytes.substr(at - anchor).starts_with(recordMark)) {
        found = at - anchor + recordMark.size();
      }
      ++at;
    }
  }
  return found;
}

// The end of the first line that is not empty.
std::size_t endOfFirstLine(std::string_view bytes) {
  const std::size_t start = std::min(bytes.find_first_not_of('\n'), bytes.size());
  return std::min(bytes.find('\n', start), bytes.size());
}

std::optional<CodexRecord> recordIn(std::string_view line, Date fallback) {
  auto decoded = CodexRolloutLine::decode(line);
  if (!decoded || !decoded->payload || !decoded->payload->rateLimits ||
      !decoded->payload->rateLimits->carriesWindow()) {
    return std::nullopt;
  }
  return CodexRecord{.limits = std::move(*decoded->payload->rateLimits),
                     .timestamp = decoded->timestamp.value_or(fallback),
                     .hasOwnTime = decoded->timestamp.has_value()};
}

// Up to `length` bytes of a file, in a text with space for `capacity`. The memory is not cleared
// first, and goes with the read: reads are rare and the program is resident.
std::string bytesAt(const BoundedFile& file, std::int64_t offset, std::size_t length,
                    std::size_t capacity) {
  std::string bytes;
  bytes.reserve(capacity);
  bytes.resize_and_overwrite(length, [&](char* into, std::size_t size) {
    return file.readAt(offset, {into, size}).value_or(0);
  });
  return bytes;
}

}  // namespace

std::optional<CodexRecord> lastRecordIn(std::string_view bytes, bool startsMidFile, Date fallback,
                                        std::size_t maxLine) {
  const std::size_t first = startsMidFile ? endOfFirstLine(bytes) : 0;
  std::size_t end = bytes.size();
  while (const std::size_t markEnd = endOfLastMark(bytes.substr(first, end - first))) {
    const std::size_t mark = first + markEnd - recordMark.size();
    const std::size_t newline = bytes.rfind('\n', mark);
    const std::size_t lineStart = newline == std::string_view::npos ? 0 : newline + 1;
    const std::size_t lineEnd = std::min(bytes.find('\n', mark), bytes.size());
    if (lineEnd - lineStart <= maxLine) {
      if (auto record = recordIn(bytes.substr(lineStart, lineEnd - lineStart), fallback)) {
        record->offset = static_cast<std::int64_t>(lineStart);
        return record;
      }
    }
    end = lineStart;
  }
  return std::nullopt;
}

RolloutOutcome lastRateLimits(const BoundedFile& in, Date fallback, std::size_t tailWindow,
                              std::size_t maxLine) {
  const auto length = static_cast<std::size_t>(
      std::min<std::uint64_t>(static_cast<std::uint64_t>(in.size()), tailWindow));
  const std::size_t step = std::min(length, firstStep);
  const std::int64_t stepStart = in.size() - static_cast<std::int64_t>(step);
  const std::string end = bytesAt(in, stepStart, step, step);
  if (auto record = lastRecordIn(end, stepStart > 0, fallback, maxLine)) {
    record->offset += stepStart;
    return *std::move(record);
  }
  if (end.size() != step) {
    return std::unexpected(NoRecord::unreadable);
  }
  if (step == length) {
    return std::unexpected(NoRecord::none);
  }
  const std::int64_t start = in.size() - static_cast<std::int64_t>(length);
  std::string rest = bytesAt(in, start, length - step, length);
  if (rest.size() != length - step) {
    return std::unexpected(NoRecord::unreadable);
  }
  // The line that the first step began in is the last one not looked at.
  rest.append(end, 0, endOfFirstLine(end));
  auto record = lastRecordIn(rest, start > 0, fallback, maxLine);
  if (!record) {
    return std::unexpected(NoRecord::none);
  }
  record->offset += start;
  return *std::move(record);
}

const CodexRecord* CodexSearch::best() const {
  if (outcomes.empty()) {
    return nullptr;
  }
  const auto& outcome = outcomes[winner];
  return outcome ? &*outcome : nullptr;
}

CodexSearch RolloutSearch::run(const RolloutTree& tree, const std::vector<RolloutFile>& files,
                               Extent extent, Date now) {
  CodexSearch search;
  const auto order = [now](const CodexRecord& record) {
    return trustedDate(record.timestamp, now);
  };
  for (const RolloutFile& file : files) {
    const CodexRecord* best = search.best();
    if (extent == Extent::newer && best != nullptr && file.modified < order(*best)) {
      search.outcomes.emplace_back(std::unexpected(NoRecord::older));
      continue;
    }
    RolloutOutcome outcome = read(tree, file);
    if (outcome && (best == nullptr || order(*outcome) > order(*best))) {
      search.winner = search.outcomes.size();
    }
    search.outcomes.push_back(std::move(outcome));
  }
  if (extent == Extent::newer) {
    std::erase_if(barren_, [&](const auto& known) {
      return std::ranges::find(files, known.first, &RolloutFile::path) == files.end();
    });
  }
  return search;
}

RolloutOutcome RolloutSearch::read(const RolloutTree& tree, const RolloutFile& file) {
  const Seen seen{.modified = file.modified, .size = file.size};
  const auto known = barren_.find(file.path);
  if (known != barren_.end() && known->second == seen) {
    return std::unexpected(NoRecord::none);
  }
  const auto opened = tree.open(file);
  RolloutOutcome outcome =
      opened ? lastRateLimits(*opened, file.modified) : std::unexpected(NoRecord::unreadable);
  if (outcome || outcome.error() != NoRecord::none) {
    barren_.erase(file.path);
  } else {
    barren_.insert_or_assign(file.path, seen);
  }
  return outcome;
}

}  // namespace marigold
