#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "base/Surroundings.h"
#include "grok/GrokLogScan.h"
#include "model/DiskCache.h"
#include "model/UsageProvider.h"

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

/// Reads the usage that the Grok tool leaves in its log.
///
/// What is known is the percentage of the newest billing line that has one, or the last reading if
/// that is newer. Of an exhaustion in force and a billing line the newer by time wins, of equal or
/// missing times the one that lies further back in the log; what is from the future is the older
/// one. The first row that holds decides:
///
/// | what holds                              | the answer                   | what is kept       |
/// |-----------------------------------------|------------------------------|--------------------|
/// | there is no log                         | "Grok not running"; if none  | what was           |
/// |                                         | is known, "Grok not          |                    |
/// |                                         | detected"                    |                    |
/// | an exhaustion is in force, not older    | the exhaustion               | as without it: it  |
/// | than what is known or what replaces     |                              | must not outlive   |
/// | that                                    |                              | its window         |
/// | its newest billing line has none and    | "no quota reported", the     | nothing; the cache |
/// | replaces what is known, or none is      | note, no windows             | entry is removed   |
/// | it has a billing line, or it can be     | the known percentage, with   | that, cached       |
/// | read and what is known is at most       | its age when that is more    |                    |
/// | `healReachSeconds` old                  | than three hours             |                    |
/// | it has none, or cannot be read          | "no recent usage"; if none   | what was           |
/// |                                         | is known, "Run Grok once …"  |                    |
///
/// A billing line without percentage replaces a percentage that is not newer, unless both tell the
/// same period (`sameMinute` of its ends) or, when one does not tell, the percentage is at most
/// `healReachSeconds` old.
///
/// An exhaustion is in force until its window is over or a line with a percentage, a finished turn
/// or another exhaustion lies behind it in the log, or is not older in another one. A log that was
/// rotated, cut or hidden, or has grown beyond the budget, says nothing about it.
class GrokProvider final : public UsageProvider {
 public:
  static constexpr ProviderID id = ProviderID::grok;

  static constexpr double healReachSeconds = 3 * secondsPerHour;

  /// The log at the time of the last read.
  struct Processed {
    std::string path;
    std::int64_t size = 0;
    Date mtime;
    std::uint64_t fileNumber = 0;
  };

  /// Restores the cached reading.
  GrokProvider(GrokPaths paths, DiskCache cache);

  /// An unchanged log is not read for `GrokLogScan::memoMaxAge`, of one that has grown only what is
  /// new.
  [[nodiscard]] ProviderSnapshot fetch(Date now) override;
  [[nodiscard]] ProviderSnapshot rescan(Date now) override;
  /// There is one file: the same as `fetch(now)`.
  [[nodiscard]] ProviderSnapshot fetch(const std::set<std::string>& changed, Date now) override;
  /// The last answer is older than an exhaustion that is over.
  [[nodiscard]] bool takesBack() const override { return takesBack_; }
  void forgetCache() override;

  /// The last percentage taken from the log or restored from the cache.
  [[nodiscard]] const std::optional<ProviderSnapshot>& lastGood() const { return lastGood_; }
  [[nodiscard]] const std::optional<Processed>& lastProcessed() const { return lastProcessed_; }

  /// Equal when rounded to minutes: the tool writes one period's end with varying fractions.
  [[nodiscard]] static bool sameMinute(Date a, Date b) noexcept;

 private:
  using BillingScan = GrokLogScan::BillingScan;
  using Activity = GrokLocated<GrokActivityLine>;

  [[nodiscard]] ProviderSnapshot read(Date now);
  [[nodiscard]] ProviderSnapshot decide(const BillingScan& scan, Date now);
  void followExhaustion(const BillingScan& scan, Date now);
  void keep(std::optional<ProviderSnapshot> reading);

  GrokPaths paths_;
  DiskCache cache_;
  std::optional<ProviderSnapshot> lastGood_;
  std::optional<Processed> lastProcessed_;
  std::optional<GrokLogScan::ScanMemo> scanMemo_;
  std::optional<Activity> exhaustion_;  // the last that was in force
  std::uint64_t exhaustionFile_ = 0;    // the number of the log it was found in
  std::optional<Date> lastExhausted_;   // the newest that was ever answered
  bool takesBack_ = false;
  std::optional<std::string> planLabel_;  // the last that was told
};

}  // namespace marigold
