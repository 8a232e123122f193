#pragma once

#include <fstream>

#include "TemporaryDirectory.h"
#include "Told.h"
#include "grok/GrokProvider.h"

namespace marigold::test {

/// A line of the tool's log, written `at(time)`.
inline std::string logLine(const std::string& msg, double time, const std::string& ctx = "{}") {
  return R"({"ts":")" + isoText(at(time)) + R"(","msg":")" + msg + R"(","ctx":)" + ctx + "}\n";
}

/// A billing line; the tier is X. `percent` as in JSON. `end`: of the period, none when negative.
inline std::string billingLine(const std::string& percent, double time, double end = -1) {
  const std::string period =
      end < 0 ? "" : R"(,"currentPeriod":{"end":")" + isoText(at(end)) + R"("})";
  return logLine(
      std::string(GrokBillingLine::billingMsg), time,
      R"({"config":{"creditUsagePercent":)" + percent + period + R"(},"subscriptionTier":"X"})");
}

/// A quota exhaustion; `rolling` as in "rolling 24-hour window".
inline std::string exhaustionLine(double time, const std::string& rolling = "") {
  return logLine(
      "shell.turn.failed", time,
      R"({"kind":"rate_limited","message":"subscription: usage-exhausted, )" + rolling + R"("})");
}

inline std::string doneLine(double time) {
  return logLine(std::string(GrokActivityLine::inferenceDoneMsg), time);
}

/// A user's home with the log of the Grok tool in it.
struct GrokHome {
  TemporaryDirectory home;
  Surroundings surroundings{
      .home = home.path(),
      .environment = {{"MARIGOLD_CACHE_DIR", "~/cache"}, {"GROK_HOME", "~/grok/"}}};
  std::string log = home.path() + "/grok/logs/unified.jsonl";
  std::string cached = home.path() + "/cache/grok.json";

  GrokHome() { std::filesystem::create_directories(GrokPaths(surroundings).logsDir()); }

  [[nodiscard]] GrokProvider provider() const {
    return {GrokPaths(surroundings), DiskCache(surroundings)};
  }
  /// In place: some file systems put a file on the disk when it was emptied and written anew.
  void write(std::string_view content) const {
    append("");
    std::ofstream(log, std::ios::binary | std::ios::in) << content;
    std::filesystem::resize_file(log, content.size());
  }
  void append(std::string_view content) const {
    std::ofstream(log, std::ios::binary | std::ios::app) << content;
  }
};

/// What a scan of `content` finds, by walking all of its lines.
// NOLINTNEXTLINE(readability-function-cognitive-complexity): one plain walk, to compare with
inline GrokLogScan::BillingScan reference(const std::string& content,
                                          const GrokLogScan::Limits& limits, Date now) {
  GrokLogScan::BillingScan found{.size = static_cast<std::int64_t>(content.size())};
  const std::size_t floor = content.size() - std::min(content.size(), limits.searchBudget);
  const auto settled = [now](const auto& line) { return line && line->ts <= now + Seconds{300}; };
  const auto take = [&](auto& slot, const auto& line, std::size_t at) {
    const auto fresh = std::optional(GrokLocated{
        .line = line, .ts = line.ts.value_or(Date{}), .at = static_cast<std::int64_t>(at)});
    slot = !slot || (!settled(slot) && settled(fresh)) ? fresh : slot;
  };
  for (std::size_t start = 0, end = content.rfind('\n');
       end != std::string::npos && end >= floor && !settled(found.usable); end = start - 1) {
    found.lineEnd = found.lineEnd.value_or(static_cast<std::int64_t>(end + 1));
    start = end == 0 ? 0 : content.rfind('\n', end - 1) + 1;  // after none comes 0
    if (floor > 0 && start <= floor) {
      break;
    }
    const std::string line = content.substr(start, end - start);
    const auto has = [&](const char* mark) { return line.find(mark) != std::string::npos; };
    if (line.size() > limits.maxLine) {
      continue;
    }
    if (has("billing: fetched credits config")) {
      const auto bill = GrokBillingLine::decode(line);
      const bool isBilling = bill && bill->isBilling();
      if (isBilling) {
        take(found.newest, *bill, start);
      }
      if (isBilling && bill->hasCreditPercent()) {
        take(found.usable, *bill, start);
      }
    } else if (has("shell.turn.inference_done") || has("rate_limited")) {
      const auto activity = GrokActivityLine::decode(line);
      if (activity && (activity->isInferenceDone() || activity->isQuotaExhaustion())) {
        take(found.activity, *activity, start);
      }
    }
  }
  return found;
}

/// Where what was found lies, without what depends on how it was scanned.
inline auto places(const GrokLogScan::BillingScan& scan) {
  const auto place = [](const auto& found) { return found ? found->at : -1; };
  return std::tuple(place(scan.usable), place(scan.newest), place(scan.activity),
                    scan.lineEnd.value_or(-1), scan.size);
}

}  // namespace marigold::test
