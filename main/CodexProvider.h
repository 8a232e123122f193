#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "CodexRecords.h"
#include "DiskCache.h"
#include "RolloutWalk.h"
#include "Surroundings.h"
#include "UsageProvider.h"

namespace marigold {

/// Where the Codex tool keeps its files.
class CodexPaths {
 public:
  explicit CodexPaths(const Surroundings& surroundings);

  /// `CODEX_HOME` when set and not empty, else ".codex" in the user's home directory.
  [[nodiscard]] const std::string& home() const noexcept { return home_; }
  /// The root of the rollout files.
  [[nodiscard]] std::string sessionsDir() const;

 private:
  std::string home_;
};

// The budgets of a read.
inline constexpr std::size_t codexTailWindow = 512UL * 1024;  ///< bytes read from a file's end
inline constexpr std::size_t codexLongestLine = 256UL * 1024;
inline constexpr std::size_t codexFilesConsidered = 40;

/// A usable record and where it was found.
struct CodexRecord {
  CodexRateLimits limits;
  Date timestamp;           ///< the line's own, else the fallback
  bool hasOwnTime = false;  ///< the line has a timestamp
  std::int64_t offset = 0;  ///< of the line in its file, in bytes
};

/// The last line in `bytes` that carries a usable window. Empty lines aside, the first line is left
/// out when the bytes start in the middle of a file, since it may be a part. Lines longer than
/// `maxLine` are left out. The record's offset is that in `bytes`.
[[nodiscard]] std::optional<CodexRecord> lastRecordIn(std::string_view bytes, bool startsMidFile,
                                                      Date fallback, std::size_t maxLine);

/// The last usable record in the last `tailWindow` bytes of the regular file at `path`; `fallback`
/// is the time of a line that has none. Every failure is nothing.
[[nodiscard]] std::optional<CodexRecord> lastRateLimits(const std::string& path, Date fallback,
                                                        std::size_t tailWindow = codexTailWindow,
                                                        std::size_t maxLine = codexLongestLine);

/// What a search among files found.
struct CodexSearch {
  /// Of the files that were read: the first ones searched, in order.
  std::vector<std::optional<CodexRecord>> outcomes;
  /// Which of them is the best one, when there is one.
  std::size_t winner = 0;

  /// The record with the latest timestamp, the first of equals; null when none was found. Points
  /// into this value.
  [[nodiscard]] const CodexRecord* best() const;
};

enum class SearchEnd : std::uint8_t {
  whenOlder,  ///< at a file last written before the best record found: no later one holds a newer
  never,
};

/// Reads `files`, which are sorted newest first.
[[nodiscard]] CodexSearch searchRollouts(const std::vector<RolloutFile>& files, SearchEnd end);

/// What is shown when no record was found: the last reading as a stale one, else why there is none.
[[nodiscard]] ProviderSnapshot codexWithoutRecord(bool sessionsExist,
                                                  const std::optional<ProviderSnapshot>& lastGood,
                                                  Date now);

/// Reads the usage that the Codex tool leaves in its rollout files.
class CodexProvider final : public UsageProvider {
 public:
  static constexpr ProviderID id = ProviderID::codex;

  /// The newest rollout file at the time of a successful read.
  struct Processed {
    std::string path;
    Date mtime;
    std::int64_t size = 0;  ///< bytes; two appends may share one tick of the file system's clock

    bool operator==(const Processed&) const = default;
  };

  /// Restores the cached reading.
  CodexProvider(CodexPaths paths, DiskCache cache, Date now);

  /// An unchanged directory costs one walk of it and opens no file.
  [[nodiscard]] ProviderSnapshot fetch(Date now) override;
  [[nodiscard]] ProviderSnapshot rescan(Date now) override;
  [[nodiscard]] ProviderSnapshot fetch(const std::set<std::string>& changed, Date now) override;
  void forgetCache() override;

  /// The newest rollout files, newest first.
  [[nodiscard]] std::vector<RolloutFile> recentRolloutFiles(std::size_t limit) const;

  /// The last reading taken from a record or restored from the cache.
  [[nodiscard]] const std::optional<ProviderSnapshot>& lastGood() const { return lastGood_; }
  [[nodiscard]] const std::optional<Processed>& lastProcessed() const { return lastProcessed_; }
  /// The file that supplied the record of `lastGood`.
  [[nodiscard]] const std::optional<std::string>& lastSource() const { return lastSource_; }

 private:
  [[nodiscard]] ProviderSnapshot read(Date now, bool force);
  [[nodiscard]] ProviderSnapshot accept(const CodexRecord& record, const std::string& source,
                                        Date now);
  [[nodiscard]] ProviderSnapshot withoutRecord(bool sessionsExist, Date now);

  CodexPaths paths_;
  DiskCache cache_;
  std::optional<ProviderSnapshot> lastGood_;
  std::optional<Processed> lastProcessed_;
  std::optional<std::string> lastSource_;
};

}  // namespace marigold
