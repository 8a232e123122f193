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
    return {GrokPaths(surroundings), DiskCache(surroundings), at(0)};
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

}  // namespace marigold::test
