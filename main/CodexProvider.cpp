#include "CodexProvider.h"

#include <algorithm>
#include <functional>
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

ProviderSnapshot aged(const ProviderSnapshot& reading, Date now) {
  return reading.withHealth(codexHealth(secondsBetween(reading.capturedAt, now)));
}

CodexProvider::Processed processed(const RolloutFile& file) {
  return {.path = file.path, .mtime = file.modified, .size = file.size};
}

}  // namespace

CodexPaths::CodexPaths(const Surroundings& surroundings)
    : home_(surroundings.toolHome("CODEX_HOME", "~/.codex")) {}

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
  if (!file || file->size() < 1) {
    return std::nullopt;
  }
  const auto length = static_cast<std::size_t>(
      std::min<std::uint64_t>(static_cast<std::uint64_t>(file->size()), tailWindow));
  const std::size_t step = std::min(length, firstStep);
  const std::int64_t stepStart = file->size() - static_cast<std::int64_t>(step);
  const std::string end = bytesAt(*file, stepStart, step, step);
  if (auto record = lastRecordIn(end, stepStart > 0, fallback, maxLine)) {
    record->offset += stepStart;
    return record;
  }
  if (end.empty() || step == length) {
    return std::nullopt;
  }
  const std::int64_t start = file->size() - static_cast<std::int64_t>(length);
  std::string rest = bytesAt(*file, start, length - step, length);
  if (rest.size() != length - step) {
    return std::nullopt;
  }
  // The line that the first step began in is the last one not looked at.
  rest.append(end, 0, endOfFirstLine(end));
  auto record = lastRecordIn(rest, start > 0, fallback, maxLine);
  if (record) {
    record->offset += start;
  }
  return record;
}

const CodexRecord* CodexSearch::best() const {
  if (outcomes.empty()) {
    return nullptr;
  }
  const auto& outcome = outcomes[winner];
  return outcome ? &*outcome : nullptr;
}

CodexSearch searchRollouts(const std::vector<RolloutFile>& files, SearchEnd end) {
  CodexSearch search;
  for (const RolloutFile& file : files) {
    const CodexRecord* best = search.best();
    if (end == SearchEnd::whenOlder && best != nullptr && file.modified < best->timestamp) {
      break;
    }
    auto record = lastRateLimits(file.path, file.modified);
    if (record && (best == nullptr || record->timestamp > best->timestamp)) {
      search.winner = search.outcomes.size();
    }
    search.outcomes.push_back(std::move(record));
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
  const CodexRecord* record = search.best();
  if (record == nullptr) {
    return read(now, false);
  }
  if (lastGood_->capturedAt > now) {
    return read(now, false);  // read under a wrong clock; it keeps nothing out
  }
  if (record->timestamp <= lastGood_->capturedAt) {
    return aged(*lastGood_, now);
  }
  // Only forwards: the newest file of all need not be among the changed ones.
  if (files.front().modified > lastProcessed_->mtime) {
    lastProcessed_ = processed(files.front());
  }
  return accept(*record, files[search.winner].path, now);
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
  Processed newest = processed(files.front());
  if (!force && lastGood_ && lastProcessed_ == newest) {
    return aged(*lastGood_, now);
  }
  const CodexSearch search = searchRollouts(files, SearchEnd::whenOlder);
  const CodexRecord* record = search.best();
  if (record == nullptr) {
    return withoutRecord(true, now);
  }
  lastProcessed_ = std::move(newest);
  return accept(*record, files[search.winner].path, now);
}

ProviderSnapshot CodexProvider::accept(const CodexRecord& record, const std::string& source,
                                       Date now) {
  lastSource_ = source;
  ProviderSnapshot snapshot = record.limits.snapshot(record.timestamp, now);
  lastGood_ = snapshot;
  cache_.save(snapshot.cached());
  return snapshot;
}

ProviderSnapshot CodexProvider::withoutRecord(bool sessionsExist, Date now) {
  lastProcessed_.reset();
  lastSource_.reset();
  return codexWithoutRecord(sessionsExist, lastGood_, now);
}

}  // namespace marigold
