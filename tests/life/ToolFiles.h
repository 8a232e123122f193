#pragma once

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "life/Luck.h"
#include "support/StoreFixture.h"
#include "support/TemporaryDirectory.h"
#include "support/Told.h"

namespace marigold::test {

/// What the tools of Codex and Grok, and others, do to their files; and what must be known of them.
class ToolFiles {
 public:
  ToolFiles(Luck& luck, std::string home) : luck_(luck), home_(std::move(home)) {
    std::filesystem::create_directories(sessions_);
    std::filesystem::create_directories(logs_);
    std::ofstream(log_).flush();
  }

  ScriptedEventStreams* streams = nullptr;
  Date now;                      ///< the wall clock
  Date lastHeard = distantPast;  ///< of Codex's records whose writing was heard of

  void codexWorks() {
    if (std::filesystem::exists(sessions_)) {
      const std::string path = someRollout();
      write(path, now, std::ios::app);
      deliver(sessions_, path);
      lastHeard = unheard_.contains(path) ? lastHeard : rollouts_[path].first;
    }
  }

  void grokWorks() {
    endsWithUsage_.reset();
    if (luck_.chance(0.05)) {
      std::filesystem::rename(log_, log_ + ".1");
    } else if (luck_.chance(0.05)) {
      std::filesystem::resize_file(log_, std::filesystem::file_size(log_) / 2);
      std::ofstream(log_, std::ios::app) << '\n';
    } else {
      const std::string billing = R"("billing: fetched credits config","ctx":{"config":{)";
      const std::array lines{
          billing + R"("creditUsagePercent":)" + std::to_string(luck_.below(100)) +
              R"(,"currentPeriod":{"end":")" + isoText(now + Seconds{4000.0 * luck_.below(100)}) +
              "\"}}}",
          billing + R"("creditUsagePercent":null}})",
          std::string(R"("shell.turn.inference_done","ctx":{})"),
          R"("shell.turn.failed","ctx":{"kind":"rate_limited","message":"subscription: )"
          "usage-exhausted, rolling " +
              std::to_string(1 + luck_.below(3)) + "-hour window\"}"};
      const std::string& line = luck_.chance(0.6) ? lines.front() : luck_.of(lines);
      std::ofstream(log_, std::ios::app)
          << R"({"ts":")" << isoText(now) << R"(","msg":)" << line << "}\n";
      if (&line == lines.data()) {
        endsWithUsage_ = Date{std::chrono::floor<std::chrono::seconds>(now)};
      }
    }
    std::ofstream(log_, std::ios::app).flush();
    setModified(log_, now);
    deliver(logs_, log_);
  }

  /// Files go, are cut or written anew; or all of them go, and next time come back.
  void meddle() {
    const std::string path = someRollout();
    const int what = isAway() ? 0 : luck_.below(4);
    if (what == 0) {
      isAway() ? std::filesystem::rename(away_, sessions_)
               : std::filesystem::rename(sessions_, away_);
      streams->deliver(sessions_, {{.path = sessions_, .flags = eventFlag::rootChanged}});
      return;
    }
    if (what == 1) {
      std::filesystem::remove(path);
      rollouts_.erase(path);
    } else if (what == 2) {
      std::ofstream(path, std::ios::trunc) << "{\"half a line";
      setModified(path, now);
      rollouts_.erase(path);
    } else {
      write(path, now - Seconds{3600.0 * luck_.below(9)}, std::ios::trunc);
    }
    deliver(sessions_, path);
  }
  [[nodiscard]] bool isAway() const { return std::filesystem::exists(away_); }

  /// Whether a reading as new as what lies in the files is told.
  [[nodiscard]] bool isTold(const std::optional<ProviderSnapshot>& codex,
                            const std::optional<ProviderSnapshot>& grok) const {
    const auto knows = [this](const auto& told, Date newest) {
      return isFromFuture(newest, now) || (told && told->isUsable() && told->capturedAt >= newest);
    };
    return (!endsWithUsage_ || knows(grok, *endsWithUsage_)) &&
           std::ranges::all_of(rollouts_, [&](const auto& file) {
             const auto& [record, written] = file.second;
             // A change that nobody heard of is seen as long as no other file is the newest.
             const bool isSeen =
                 !unheard_.contains(file.first) ||
                 std::ranges::none_of(rollouts_, [&](const auto& other) {
                   return other.first != file.first && other.second.second >= file.second.second;
                 });
             return !isSeen || isFromFuture(written, now) || knows(codex, record);
           });
  }

  /// Leaves no more than there was at first.
  void prune() {
    while (rollouts_.size() > 5) {
      std::filesystem::remove(rollouts_.begin()->first);
      rollouts_.erase(rollouts_.begin());
    }
    if (std::filesystem::file_size(log_) > 60'000) {
      std::filesystem::resize_file(log_, 0);
    }
  }

 private:
  void write(const std::string& path, Date at, std::ios::openmode how) {
    const double stamp = std::floor(at.time_since_epoch().count());
    const auto window = [&](int minutes) {
      const double length = 60.0 * minutes;
      return R"({"used_percent":)" + std::to_string(luck_.below(100)) + R"(,"window_minutes":)" +
             std::to_string(minutes) + R"(,"resets_at":)" +
             std::to_string(static_cast<long>((std::floor(stamp / length) + 1) * length)) + "}";
    };
    std::ofstream(path, how) << R"({"timestamp":")" << isoText(at)
                             << R"(","payload":{"rate_limits":{"primary":)" << window(300)
                             << R"(,"secondary":)" << window(10'080) << "}}}\n";
    setModified(path, now);
    rollouts_[path] = {Date{Seconds{stamp}}, now};
  }
  std::string someRollout() {
    return rollouts_.empty() || luck_.chance(0.2)
               ? sessions_ + "/rollout-" + std::to_string(serial_++) + ".jsonl"
               : luck_.of(rollouts_).first;
  }
  void deliver(const std::string& root, const std::string& path) {
    const auto flags = luck_.chance(0.1) ? eventFlag::mustScanSubDirs : eventFlag::itemModified;
    if (luck_.chance(0.1)) {
      unheard_.insert(path);
    } else {
      unheard_.erase(path);
      streams->deliver(root, {{.path = path, .flags = flags}});
    }
  }

  Luck& luck_;
  const std::string home_;
  const std::string sessions_ = home_ + "/codex/sessions";
  const std::string away_ = home_ + "/away";
  const std::string logs_ = home_ + "/grok/logs";
  const std::string log_ = logs_ + "/unified.jsonl";
  std::map<std::string, std::pair<Date, Date>> rollouts_;  // the last record, and when written
  std::set<std::string> unheard_;                          // changed without an event
  int serial_ = 0;
  std::optional<Date> endsWithUsage_;  // Grok's log does, of this time
};

}  // namespace marigold::test
