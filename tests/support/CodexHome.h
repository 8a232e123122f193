#pragma once

#include <array>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>

#include "CodexProvider.h"
#include "Surroundings.h"
#include "TemporaryDirectory.h"

namespace marigold::test {

/// The moment that the times of a CodexHome count from.
inline constexpr Date codexEpoch{Seconds{1.8e9}};

/// A line with a usable 5-hour window, its timestamp `at` seconds after `codexEpoch`.
inline std::string recordLine(double percent, int at) {
  const std::string time = isoText(codexEpoch + Seconds{static_cast<double>(at)});
  return R"({"timestamp":")" + time + R"(","payload":{"rate_limits":{"primary":{"used_percent":)" +
         std::to_string(percent) + R"(,"window_minutes":300},"plan_type":"plus"}}})" + "\n";
}

/// Sets a file's modification time to `at` seconds after `codexEpoch`.
inline void setModified(const std::string& path, double at) {
  timespec time{};
  time.tv_sec = static_cast<time_t>((codexEpoch + Seconds{at}).time_since_epoch().count());
  const std::array times{time, time};
  ::utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW);
}

/// A user's home with the files of the Codex tool in it.
class CodexHome {
 public:
  [[nodiscard]] std::string path() const { return home_.path(); }
  [[nodiscard]] std::string sessions() const { return home_.path() + "/.codex/sessions"; }
  [[nodiscard]] Surroundings surroundings() const {
    return {.home = home_.path(), .environment = {{"MARIGOLD_CACHE_DIR", "~/cache"}}};
  }
  [[nodiscard]] CodexProvider provider() const {
    return {CodexPaths(surroundings()), DiskCache(surroundings()), codexEpoch};
  }
  /// Writes a file below the sessions, `at` seconds after `codexEpoch`; gives its path.
  std::string write(const std::string& relative, std::string_view content, double at) {
    std::string path = home_.write(".codex/sessions/" + relative, content);
    setModified(path, at);
    return path;
  }

 private:
  TemporaryDirectory home_;
};

}  // namespace marigold::test
