#pragma once

#include "TemporaryDirectory.h"
#include "Told.h"
#include "codex/CodexProvider.h"

namespace marigold::test {

/// A line with a usable 5-hour window and the timestamp `at(time)`.
inline std::string recordLine(double percent, double time) {
  return R"({"timestamp":")" + isoText(at(time)) +
         R"(","payload":{"rate_limits":{"primary":{"used_percent":)" + std::to_string(percent) +
         R"(,"window_minutes":300},"plan_type":"plus"}}})" + "\n";
}

/// A user's home with the files of the Codex tool in it.
struct CodexHome {
  TemporaryDirectory home;
  std::string sessions = home.path() + "/codex/sessions";
  Surroundings surroundings{
      .home = home.path(),
      .environment = {{"MARIGOLD_CACHE_DIR", "~/cache"}, {"CODEX_HOME", "~/codex/"}}};

  [[nodiscard]] CodexProvider provider() const {
    return {CodexPaths(surroundings), DiskCache(surroundings)};
  }
  /// The paths below the sessions of the rollout files that are found at a time.
  [[nodiscard]] std::vector<std::string> recentRolloutFiles(double time = 0,
                                                            std::size_t limit = 40) const {
    std::vector<std::string> paths;
    for (auto& file : RolloutTree(sessions).recentRolloutFiles(limit, at(time)).newest) {
      paths.push_back(std::move(file.path));
    }
    return paths;
  }
  /// Writes a file below the sessions, modified `at(time)`; gives its path.
  std::string write(const std::string& relative, std::string_view content, double time) const {
    std::string path = home.write("codex/sessions/" + relative, content);
    setModified(path, at(time));
    return path;
  }
};

}  // namespace marigold::test
