#include "codex/CodexProvider.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace marigold {

namespace {

ProviderSnapshot aged(const ProviderSnapshot& reading, Date now) {
  return reading.withHealth(codexHealth(secondsBetween(reading.capturedAt, now)));
}

CodexProvider::Processed processed(const RolloutTree& tree, const RolloutFile& file) {
  return {.path = tree.pathOf(file), .mtime = file.modified, .size = file.size};
}

}  // namespace

CodexPaths::CodexPaths(const Surroundings& surroundings)
    : home_(surroundings.toolHome("CODEX_HOME", "~/.codex")) {}

std::string CodexPaths::sessionsDir() const {
  return home_.ends_with('/') ? home_ + "sessions" : home_ + "/sessions";
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

CodexProvider::CodexProvider(CodexPaths paths, DiskCache cache)
    : paths_(std::move(paths)), cache_(std::move(cache)) {
  if (const auto cached = cache_.load(id)) {
    lastGood_ = cached->restored(cached->capturedAt);  // each answer tells its age
  }
}

ProviderSnapshot CodexProvider::fetch(Date now) {
  return read(now, false);
}

ProviderSnapshot CodexProvider::rescan(Date now) {
  return read(now, true);
}

ProviderSnapshot CodexProvider::fetch(const std::set<std::string>& changed, Date now) {
  if (!lastGood_ || !lastProcessed_ || isFromFuture(lastGood_->capturedAt, now)) {
    return read(now, false);
  }
  const RolloutTree tree(paths_.sessionsDir());
  std::vector<RolloutFile> files;
  for (const std::string& path : changed) {
    if (auto file = tree.fileAt(path)) {
      files.push_back(std::move(*file));
    }
  }
  const auto order = [now](const RolloutFile& file) { return trustedDate(file.modified, now); };
  std::ranges::sort(files, [&](const RolloutFile& a, const RolloutFile& b) {
    return order(a) != order(b) ? order(a) > order(b) : a.path < b.path;
  });
  const CodexSearch search = search_.run(tree, files, RolloutSearch::Extent::all, now);
  const CodexRecord* record = search.best();
  if (record == nullptr || isFromFuture(record->timestamp, now)) {
    return read(now, false);
  }
  if (record->timestamp <= lastGood_->capturedAt) {
    return aged(*lastGood_, now);
  }
  // Only forwards: the newest file of all need not be among the changed ones.
  if (order(files.front()) > trustedDate(lastProcessed_->mtime, now)) {
    lastProcessed_ = processed(tree, files.front());
  }
  return accept(*record, tree.pathOf(files[search.winner]), now);
}

void CodexProvider::forgetCache() {
  lastGood_.reset();
  lastProcessed_.reset();
  lastSource_.reset();
  cache_.remove(id);
}

ProviderSnapshot CodexProvider::read(Date now, bool force) {
  const RolloutTree tree(paths_.sessionsDir());
  const RolloutListing listing = tree.recentRolloutFiles(codexFilesConsidered, now);
  const std::vector<RolloutFile>& files = listing.newest;
  if (files.empty()) {
    return withoutRecord(listing.rootExists, now);
  }
  Processed newest = processed(tree, files.front());
  if (!force && lastGood_ && lastProcessed_ == newest) {
    return aged(*lastGood_, now);
  }
  if (force) {
    search_.forget();
  }
  const CodexSearch search = search_.run(tree, files, RolloutSearch::Extent::newer, now);
  const CodexRecord* record = search.best();
  if (record == nullptr) {
    return withoutRecord(true, now);
  }
  lastProcessed_ = std::move(newest);
  return accept(*record, tree.pathOf(files[search.winner]), now);
}

ProviderSnapshot CodexProvider::accept(const CodexRecord& record, const std::string& source,
                                       Date now) {
  // The file of the newer reading may have been moved away, cut or hidden; that does not make an
  // older one current.
  if (lastGood_ && !lastGood_->allReset(now) &&
      trustedDate(record.timestamp, now) < trustedDate(lastGood_->capturedAt, now)) {
    return aged(*lastGood_, now);
  }
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
