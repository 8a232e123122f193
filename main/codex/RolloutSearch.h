#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "codex/CodexRecords.h"
#include "codex/RolloutWalk.h"

// The search for the newest usable record: the last one in the tail of each file, the latest among
// files.

namespace marigold {

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

/// Why a file gives no record.
enum class NoRecord : std::uint8_t {
  none,        ///< there is none in its tail
  unreadable,  ///< it could not be opened or not be read
  older,       ///< it was not opened: last written before the best record found
};
using RolloutOutcome = std::expected<CodexRecord, NoRecord>;

/// The last usable record in the last `tailWindow` bytes of a file; `fallback` is the time of a
/// line that has none.
[[nodiscard]] RolloutOutcome lastRateLimits(const BoundedFile& in, Date fallback,
                                            std::size_t tailWindow = codexTailWindow,
                                            std::size_t maxLine = codexLongestLine);

/// What a search among files found.
struct CodexSearch {
  std::vector<RolloutOutcome> outcomes;  ///< of the files, in their order
  /// Which of them is the best one, when there is one.
  std::size_t winner = 0;

  /// The record with the latest timestamp, the first of equals; one from the future only where
  /// there is no other. Null when none was found. Points into this value.
  [[nodiscard]] const CodexRecord* best() const;
};

/// Searches files, and remembers those in which there is nothing: a tail of lines that only seem to
/// hold a record costs a tenth of a second, at every refresh.
class RolloutSearch {
 public:
  enum class Extent : std::uint8_t {
    newer,  ///< no file last written before the best record found: it cannot hold a newer one
    all,
  };

  /// Reads `files` of `tree`.
  [[nodiscard]] CodexSearch run(const RolloutTree& tree, const std::vector<RolloutFile>& files,
                                Extent extent, Date now);
  void forget() { barren_.clear(); }

 private:
  [[nodiscard]] RolloutOutcome read(const RolloutTree& tree, const RolloutFile& file);

  struct Seen {
    Date modified;
    std::int64_t size;
    bool operator==(const Seen&) const = default;
  };
  std::map<std::string, Seen> barren_;  // by path
};

}  // namespace marigold
