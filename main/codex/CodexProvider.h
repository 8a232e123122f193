#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "base/Surroundings.h"
#include "codex/RolloutSearch.h"
#include "model/DiskCache.h"
#include "model/UsageProvider.h"

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
  CodexProvider(CodexPaths paths, DiskCache cache);

  /// An unchanged directory costs one walk of it and opens no file.
  [[nodiscard]] ProviderSnapshot fetch(Date now) override;
  [[nodiscard]] ProviderSnapshot rescan(Date now) override;
  [[nodiscard]] ProviderSnapshot fetch(const std::set<std::string>& changed, Date now) override;
  void forgetCache() override;

  /// The last reading taken from a record or restored from the cache.
  [[nodiscard]] const std::optional<ProviderSnapshot>& lastGood() const { return lastGood_; }
  [[nodiscard]] const std::optional<Processed>& lastProcessed() const { return lastProcessed_; }
  /// The file that supplied the record of `lastGood`.
  [[nodiscard]] const std::optional<std::string>& lastSource() const { return lastSource_; }

 private:
  [[nodiscard]] ProviderSnapshot read(Date now, bool force);
  // The answer when `record` of the file `source` is the best one that was found.
  [[nodiscard]] ProviderSnapshot accept(const CodexRecord& record, const std::string& source,
                                        Date now);
  [[nodiscard]] ProviderSnapshot withoutRecord(bool sessionsExist, Date now);

  CodexPaths paths_;
  DiskCache cache_;
  RolloutSearch search_;
  std::optional<ProviderSnapshot> lastGood_;
  std::optional<Processed> lastProcessed_;
  std::optional<std::string> lastSource_;
};

}  // namespace marigold
