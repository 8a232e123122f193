#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "base/BoundedFile.h"
#include "grok/GrokRecords.h"

namespace marigold {

/// A decoded line of the log.
template <class Record>
struct GrokLocated {
  Record line;
  Date ts;              ///< the line's own time, else the file's when the line was first seen
  std::int64_t at = 0;  ///< its offset in the file
};

/// Finds the lines of the log that tell of usage, from its end backwards in bounded steps.
struct GrokLogScan {
  static constexpr std::size_t chunkBytes = 512UL * 1024;
  static constexpr std::size_t searchBudgetBytes = 4UL * 1024 * 1024;
  static constexpr std::size_t maxLineBytes = 256UL * 1024;
  static constexpr std::size_t stampBytes = 256;
  static constexpr double memoMaxAge = 120;  ///< seconds

  /// The budgets of one scan, in bytes.
  struct Limits {
    std::size_t chunkSize = chunkBytes;            ///< of one backward read
    std::size_t searchBudget = searchBudgetBytes;  ///< how far back from the end
    std::size_t maxLine = maxLineBytes;            ///< longer lines are skipped
  };

  /// What one scan found. A line from the future was written under a wrong clock: it is found only
  /// where there is no other, and a scan goes on behind it.
  struct BillingScan {
    std::optional<GrokLocated<GrokBillingLine>> usable;  ///< the newest with a percentage
    std::optional<GrokLocated<GrokBillingLine>> newest;  ///< of any kind
    /// The newest that tells of a finished turn or a quota exhaustion; none older than `usable`.
    std::optional<GrokLocated<GrokActivityLine>> activity;
    std::optional<std::int64_t> lineEnd;  ///< just behind the last complete line
    std::int64_t size = 0;                ///< of the file
    bool reachedFloor = false;            ///< every line from the floor on was looked at
    bool cutShort = false;                ///< a read failed or came short
    bool metFuture = false;               ///< a line from the future was met
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

  /// The scan of a file, reusing or extending what `memo` holds of it, and the new memo: none after
  /// a scan that was cut short or met a line from the future. `fallback` is the time of a line that
  /// has none.
  [[nodiscard]] static std::pair<BillingScan, std::optional<ScanMemo>> memoizedScan(
      const BoundedFile& in, Date fallback, const std::optional<ScanMemo>& memo, Date now,
      const Limits& limits);
  /// One scan from the end backwards, not below the offset `floor`, at which a line begins. Ends at
  /// the newest billing line with a percentage.
  [[nodiscard]] static BillingScan scanBilling(const BoundedFile& in, Date fallback, Date now,
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
};

}  // namespace marigold
