#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "BoundedFile.h"
#include "DiskCache.h"
#include "GrokRecords.h"
#include "Surroundings.h"
#include "UsageProvider.h"

namespace marigold {

/// Where the Grok command-line tool keeps its log.
class GrokPaths {
 public:
  explicit GrokPaths(const Surroundings& surroundings);

  /// `GROK_HOME` when set and not empty, else "~/.grok".
  [[nodiscard]] const std::string& home() const noexcept { return home_; }
  [[nodiscard]] std::string logsDir() const { return home_ + "/logs"; }
  /// The one file that is read.
  [[nodiscard]] std::string unifiedLog() const { return logsDir() + "/unified.jsonl"; }

 private:
  std::string home_;
};

/// A decoded line of the log.
template <class Record>
struct GrokLocated {
  Record line;
  Date ts;              ///< the line's own time, else the file's when the line was first seen
  std::int64_t at = 0;  ///< its offset in the file
};

/// Reads the usage that the Grok tool leaves in its log.
///
/// What is known is the percentage of the newest billing line that has one, or the last reading if
/// that is newer; a reading from the future was taken under a wrong clock and is newer than
/// nothing. A line that lies behind that billing line is the newer one, whatever their times say.
/// The first row that holds decides:
///
/// | what holds                            | the answer                     | what is kept       |
/// |---------------------------------------|--------------------------------|--------------------|
/// | there is no log                       | "Grok not running"; if none is | what was           |
/// |                                       | known, "Grok not detected"     |                    |
/// | the last activity is an exhaustion in | the exhaustion                 | as without it: it  |
/// | force, not older than what is known   |                                | must not outlive   |
/// | or than what replaces that            |                                | its window         |
/// | its newest billing line has none and  | "no quota reported", the note, | nothing; the cache |
/// | replaces what is known, or none is    | no windows                     | entry is removed   |
/// | it has a billing line, or it can be   | the known percentage, with its | that, cached       |
/// | read and what is known is at most     | age when that is more than     |                    |
/// | `healReachSeconds` old                | three hours                    |                    |
/// | it has none, or cannot be read        | "no recent usage"; if none is  | what was           |
/// |                                       | known, "Run Grok once to …"    |                    |
///
/// A billing line without percentage replaces a percentage that is not newer, unless both tell the
/// same period (`sameMinute` of its ends) or, when one does not tell, the percentage is at most
/// `healReachSeconds` old.
///
/// An answered exhaustion with a rolling window stays the last activity while the log shows neither
/// another nor a percentage: it may have been rotated or have grown beyond the budget. One without
/// a window has no end, so that it holds only while the log shows it.
///
/// Whoever asks keeps the newer of two readings with windows, and what was known before an
/// exhaustion is the older one. So when an exhaustion that was answered is over, "no recent usage",
/// or "Grok not running", without windows takes its place for `memoMaxAge`, and only then an older
/// reading.
class GrokProvider final : public UsageProvider {
 public:
  static constexpr ProviderID id = ProviderID::grok;

  static constexpr std::size_t chunkBytes = 512UL * 1024;
  static constexpr std::size_t searchBudgetBytes = 4UL * 1024 * 1024;
  static constexpr std::size_t maxLineBytes = 256UL * 1024;
  static constexpr std::size_t stampBytes = 256;
  static constexpr double memoMaxAge = 120;  ///< seconds
  static constexpr double healReachSeconds = 3 * 3600;

  /// The budgets of one scan, in bytes.
  struct Limits {
    std::size_t chunkSize = chunkBytes;            ///< of one backward read
    std::size_t searchBudget = searchBudgetBytes;  ///< how far back from the end
    std::size_t maxLine = maxLineBytes;            ///< longer lines are skipped
  };

  /// What one scan found.
  struct BillingScan {
    std::optional<GrokLocated<GrokBillingLine>> usable;  ///< the newest with a percentage
    std::optional<GrokLocated<GrokBillingLine>> newest;  ///< of any kind
    /// The newest that tells of a finished turn or a quota exhaustion; none older than `usable`.
    std::optional<GrokLocated<GrokActivityLine>> activity;
    std::optional<std::int64_t> lineEnd;  ///< just behind the last complete line
    std::int64_t size = 0;                ///< of the file
    bool reachedFloor = false;            ///< every line from the floor on was looked at
    bool cutShort = false;                ///< a read failed or came short
  };

  /// What is remembered of a scan, and by what the file is known again.
  struct ScanMemo {
    std::uint64_t fileNumber = 0;
    std::int64_t size = 0;
    Date mtime;
    BillingScan scan;
    std::optional<std::string> stamp;  ///< the bytes that end at `size`
    Date fullAt;                       ///< when it was made
  };

  /// The log at the time of the last read.
  struct Processed {
    std::string path;
    std::int64_t size = 0;
    Date mtime;

    bool operator==(const Processed&) const = default;
  };

  /// Restores the cached reading.
  GrokProvider(GrokPaths paths, DiskCache cache, Date now);

  /// An unchanged log is not read for `memoMaxAge`, of one that has grown only what is new.
  [[nodiscard]] ProviderSnapshot fetch(Date now) override;
  [[nodiscard]] ProviderSnapshot rescan(Date now) override;
  /// There is one file: the same as `fetch(now)`.
  [[nodiscard]] ProviderSnapshot fetch(const std::set<std::string>& changed, Date now) override;
  void forgetCache() override;

  /// The last percentage taken from the log or restored from the cache.
  [[nodiscard]] const std::optional<ProviderSnapshot>& lastGood() const { return lastGood_; }
  [[nodiscard]] const std::optional<Processed>& lastProcessed() const { return lastProcessed_; }

  /// The scan of a file, reusing or extending what `memo` holds of it, and the new memo: none after
  /// a scan that was cut short. `fallback` is the time of a line that has none.
  [[nodiscard]] static std::pair<BillingScan, std::optional<ScanMemo>> memoizedScan(
      const BoundedFile& in, Date fallback, const std::optional<ScanMemo>& memo, Date now,
      const Limits& limits);
  /// One scan from the end backwards, not below the offset `floor`, at which a line begins. Ends at
  /// the newest billing line with a percentage.
  [[nodiscard]] static BillingScan scanBilling(const BoundedFile& in, Date fallback,
                                               const Limits& limits, std::int64_t floor);
  /// Whether `scan`, of the bytes from `floor` on, can stand in for a scan of the whole file.
  [[nodiscard]] static bool regionUsable(const BillingScan& scan, std::int64_t statSize,
                                         std::int64_t floor, std::size_t searchBudget);
  /// The scan `region` of what is new in a file that now has `size` bytes, and `over` of what came
  /// before, without what lies further back than the budget.
  [[nodiscard]] static BillingScan merged(const BillingScan& region, const BillingScan& over,
                                          std::int64_t size, std::size_t searchBudget);
  /// The `stampBytes` bytes that end at an offset; nothing when there are not as many.
  [[nodiscard]] static std::optional<std::string> stamp(const BoundedFile& of,
                                                        std::int64_t endingAt);
  /// Equal when rounded to minutes: the tool writes one period's end with varying fractions.
  [[nodiscard]] static bool sameMinute(Date a, Date b) noexcept;

 private:
  [[nodiscard]] ProviderSnapshot read(Date now);
  [[nodiscard]] ProviderSnapshot decide(const BillingScan& scan, Date now);
  void keep(std::optional<ProviderSnapshot> reading);

  // The exhaustion that was answered last.
  struct Exhaustion {
    Date writtenAt;
    std::optional<Date> overSince;  // when it was first found to be over
  };

  GrokPaths paths_;
  DiskCache cache_;
  std::optional<ProviderSnapshot> lastGood_;
  std::optional<Processed> lastProcessed_;
  std::optional<ScanMemo> scanMemo_;
  std::optional<Exhaustion> exhaustion_;
  std::optional<GrokLocated<GrokActivityLine>> rolling_;  // the last answer's, if it has a window
  std::optional<std::string> planLabel_;                  // the last that was told
};

}  // namespace marigold
