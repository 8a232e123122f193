#include "model/LegacyNetworkCache.h"

#include <cerrno>
#include <deque>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include <sys/stat.h>

#include "model/DiskCache.h"

namespace marigold {

namespace {

namespace fs = std::filesystem;

/// What a file is known by, whatever paths lead to it.
using Identity = std::pair<dev_t, ino_t>;

std::optional<struct stat> statusOf(const fs::path& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

// Adds everything that is passed on the way to `path`: directories, links and what it names. False
// when that cannot be found out.
bool addWay(const std::string& path, std::set<Identity>& passed) {
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error);
  std::deque<fs::path> rest(absolute.begin(), absolute.end());
  int linksLeft = 40;  // as many as the kernel follows
  fs::path at;
  while (!error && !rest.empty()) {
    const fs::path name = std::exchange(rest.front(), {});
    rest.pop_front();
    at /= name;
    const auto status = statusOf(at);
    if (!status) {
      return errno == ENOENT || errno == ENOTDIR;
    }
    passed.emplace(status->st_dev, status->st_ino);
    if (S_ISLNK(status->st_mode)) {
      const fs::path target = fs::read_symlink(at, error);
      at = at.parent_path();
      rest.insert(rest.begin(), target.begin(), target.end());
      if (--linksLeft == 0) {
        return false;
      }
    }
  }
  return !error;
}

}  // namespace

void purgeLegacyNetworkCache(const Surroundings& surroundings) {
  const DiskCache cache(surroundings);
  std::set<Identity> kept;
  const auto isKept = [&kept](const std::string& path) {
    return path.empty() || addWay(path, kept);
  };
  if (!isKept(surroundings.home) || !isKept(surroundings.preferencesFile()) ||
      !isKept(cache.dir()) || !isKept(surroundings.applicationSupport + "/" + cache.bundleID()) ||
      !isKept(surroundings.toolHome("CODEX_HOME", "~/.codex")) ||
      !isKept(surroundings.toolHome("GROK_HOME", "~/.grok")) ||
      !isKept(surroundings.toolHome("CLAUDE_CONFIG_DIR", "~/.claude"))) {
    return;
  }
  for (const std::string& base : {surroundings.caches, surroundings.httpStorages}) {
    const fs::path entry = fs::path(base) / cache.bundleID();
    const auto status = base.empty() ? std::nullopt : statusOf(entry);
    if (status && !S_ISLNK(status->st_mode) && !kept.contains({status->st_dev, status->st_ino})) {
      std::error_code ignored;
      fs::remove_all(entry, ignored);
    }
  }
}

}  // namespace marigold
