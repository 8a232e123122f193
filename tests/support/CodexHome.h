#pragma once

#include <filesystem>

#include "CodexProvider.h"
#include "TemporaryDirectory.h"

namespace marigold::test {

/// `seconds` after a moment that the tests count from.
constexpr Date at(double seconds) {
  return Date{Seconds{1.8e9 + seconds}};
}

/// A line with a usable 5-hour window and the timestamp `at(time)`.
inline std::string recordLine(double percent, double time) {
  return R"({"timestamp":")" + isoText(at(time)) +
         R"(","payload":{"rate_limits":{"primary":{"used_percent":)" + std::to_string(percent) +
         R"(,"window_minutes":300},"plan_type":"plus"}}})" + "\n";
}

inline void setModified(const std::string& path, Date date) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(date);
  std::filesystem::last_write_time(path, std::chrono::file_clock::from_sys(whole));
}

/// A user's home with the files of the Codex tool in it.
struct CodexHome {
  TemporaryDirectory home;
  std::string sessions = home.path() + "/.codex/sessions";
  Surroundings surroundings{.home = home.path(),
                            .environment = {{"MARIGOLD_CACHE_DIR", "~/cache"}}};

  [[nodiscard]] CodexProvider provider() const {
    return {CodexPaths(surroundings), DiskCache(surroundings), at(0)};
  }
  /// Writes a file below the sessions, modified `at(time)`; gives its path.
  std::string write(const std::string& relative, std::string_view content, double time) const {
    std::string path = home.write(".codex/sessions/" + relative, content);
    setModified(path, at(time));
    return path;
  }
};

}  // namespace marigold::test
