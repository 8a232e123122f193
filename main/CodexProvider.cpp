#include "CodexProvider.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <span>
#include <utility>

#include "BoundedFile.h"

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

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) {
    path.pop_back();
  }
  return path;
}

}  // namespace

CodexPaths::CodexPaths(const Surroundings& surroundings) {
  const std::string chosen = surroundings.variable("CODEX_HOME");
  home_ = withoutTrailingSlashes(surroundings.expandingTilde(chosen.empty() ? "~/.codex" : chosen));
}

std::string CodexPaths::sessionsDir() const {
  return home_.ends_with('/') ? home_ + "sessions" : home_ + "/sessions";
}

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

std::optional<CodexRecord> lastRateLimits(const std::string& path, Date fallback,
                                          std::size_t tailWindow, std::size_t maxLine) {
  const auto file = BoundedFile::open(path);
  if (!file || file->size() < 1 || tailWindow == 0) {
    return std::nullopt;
  }
  const auto size = static_cast<std::uint64_t>(file->size());
  const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(size, tailWindow));
  const std::size_t step = std::min(length, firstStep);
  // The pages of a part that is not read are never touched. The buffer goes with this call: reads
  // are rare and the program is resident.
  const auto memory = std::make_unique_for_overwrite<char[]>(length);
  const std::span<char> tail(memory.get(), length);
  const std::int64_t stepStart = file->size() - static_cast<std::int64_t>(step);
  const auto stepRead = file->readAt(stepStart, tail.last(step));
  if (!stepRead || *stepRead == 0) {
    return std::nullopt;
  }
  const std::string_view end(tail.last(step).data(), *stepRead);
  if (auto record = lastRecordIn(end, stepStart > 0, fallback, maxLine)) {
    record->offset += stepStart;
    return record;
  }
  const std::span<char> front = tail.first(length - step);
  const std::int64_t start = file->size() - static_cast<std::int64_t>(length);
  if (front.empty() || file->readAt(start, front) != front.size()) {
    return std::nullopt;
  }
  // The line that the first step began in is the last one not looked at.
  const std::string_view rest(tail.data(), front.size() + endOfFirstLine(end));
  auto record = lastRecordIn(rest, start > 0, fallback, maxLine);
  if (record) {
    record->offset += start;
  }
  return record;
}

CodexSearch searchRollouts(const std::vector<RolloutFile>& files, SearchEnd end) {
  CodexSearch search;
  std::optional<Date> best;
  for (const RolloutFile& file : files) {
    if (end == SearchEnd::whenOlder && best && file.modified < *best) {
      break;
    }
    const auto& record = search.outcomes.emplace_back(lastRateLimits(file.path, file.modified));
    if (record && (!best || record->timestamp > *best)) {
      best = record->timestamp;
      search.winner = search.outcomes.size() - 1;
    }
  }
  return search;
}

ProviderSnapshot codexWithoutRecord(bool sessionsExist,
                                    const std::optional<ProviderSnapshot>& lastGood, Date now) {
  if (lastGood) {
    return lastGood->withHealth(
        Health::stale(sessionsExist ? "no recent usage" : "Codex not running"));
  }
  return {.provider = CodexProvider::id,
          .windows = {},
          .capturedAt = now,
          .health = sessionsExist ? Health::reconnect("Run Codex once to see usage")
                                  : Health::notInstalled("Codex not detected"),
          .planLabel = {},
          .extraNote = {}};
}

CodexProvider::CodexProvider(CodexPaths paths, DiskCache cache, Date now)
    : paths_(std::move(paths)), cache_(std::move(cache)) {
  if (const auto cached = cache_.load(id)) {
    lastGood_ = cached->restored(now);
  }
}

ProviderSnapshot CodexProvider::fetch(Date now) {
  return read(now, false);
}

ProviderSnapshot CodexProvider::rescan(Date now) {
  return read(now, true);
}

ProviderSnapshot CodexProvider::fetch(const std::set<std::string>& changed, Date now) {
  if (!lastGood_ || !lastProcessed_) {
    return read(now, false);
  }
  const std::string root = paths_.sessionsDir();
  std::vector<RolloutFile> files;
  for (const std::string& path : changed) {
    if (auto file = rolloutFileAt(root, path)) {
      files.push_back(std::move(*file));
    }
  }
  std::ranges::sort(files, std::greater<>(), &RolloutFile::modified);
  files.resize(std::min(files.size(), codexFilesConsidered));
  const CodexSearch search = searchRollouts(files, SearchEnd::never);
  if (!search.winner) {
    return read(now, false);
  }
  const CodexRecord& record = *search.outcomes[*search.winner];
  if (record.timestamp <= lastGood_->capturedAt) {
    return agedLastGood(now);
  }
  // Only forwards: the newest file of all need not be among the changed ones.
  if (files.front().modified > lastProcessed_->mtime) {
    lastProcessed_ = {.path = files.front().path, .mtime = files.front().modified};
  }
  return accept(record, files[*search.winner].path, now);
}

void CodexProvider::forgetCache() {
  lastGood_.reset();
  lastProcessed_.reset();
  lastSource_.reset();
  cache_.remove(id);
}

std::vector<RolloutFile> CodexProvider::recentRolloutFiles(std::size_t limit) const {
  return newestRolloutFiles(paths_.sessionsDir(), limit).newest;
}

ProviderSnapshot CodexProvider::read(Date now, bool force) {
  const RolloutListing listing = newestRolloutFiles(paths_.sessionsDir(), codexFilesConsidered);
  const std::vector<RolloutFile>& files = listing.newest;
  if (files.empty()) {
    return withoutRecord(listing.rootExists, now);
  }
  Processed newest{.path = files.front().path, .mtime = files.front().modified};
  if (!force && lastGood_ && lastProcessed_ == newest) {
    return agedLastGood(now);
  }
  const CodexSearch search = searchRollouts(files, SearchEnd::whenOlder);
  if (!search.winner) {
    return withoutRecord(true, now);
  }
  lastProcessed_ = std::move(newest);
  const CodexRecord& record = *search.outcomes[*search.winner];
  // The newer record may lie out of reach by now, its file deleted or grown by a long answer. A
  // reading from the future shows that the clock was wrong and keeps nothing out.
  if (lastGood_ && record.timestamp < lastGood_->capturedAt && lastGood_->capturedAt <= now) {
    return agedLastGood(now);
  }
  return accept(record, files[*search.winner].path, now);
}

ProviderSnapshot CodexProvider::accept(const CodexRecord& record, const std::string& source,
                                       Date now) {
  lastSource_ = source;
  lastGood_ = record.limits.snapshot(record.timestamp, now);
  cache_.save(lastGood_->cached());
  return *lastGood_;
}

ProviderSnapshot CodexProvider::withoutRecord(bool sessionsExist, Date now) {
  lastProcessed_.reset();
  lastSource_.reset();
  return codexWithoutRecord(sessionsExist, lastGood_, now);
}

ProviderSnapshot CodexProvider::agedLastGood(Date now) const {
  return lastGood_->withHealth(codexHealth(secondsBetween(lastGood_->capturedAt, now)));
}

}  // namespace marigold
