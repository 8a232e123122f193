#include "LinuxSurroundings.h"

#include <array>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>

#include <pwd.h>
#include <unistd.h>

#include "DiskCache.h"

namespace marigold {

namespace {

std::string variable(const char* name) {
  // The environment is read once, before any thread exists.
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
  return value == nullptr ? std::string() : std::string(value);
}

std::string homeDirectory() {
  if (std::string home = variable("HOME"); home.starts_with('/')) {
    return withoutTrailingSlashes(std::move(home));
  }
  std::array<char, 16384> buffer{};
  passwd entry = {};
  passwd* found = nullptr;
  ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
  return found == nullptr ? "/" : withoutTrailingSlashes(found->pw_dir);
}

// The XDG rules: a relative path is to be ignored.
std::string xdgDirectory(const char* name, const std::string& otherwise) {
  std::string path = variable(name);
  return path.starts_with('/') ? withoutTrailingSlashes(std::move(path)) : otherwise;
}

}  // namespace

Surroundings linuxSurroundings() {
  const std::string home = homeDirectory();
  const std::string caches = xdgDirectory("XDG_CACHE_HOME", home + "/.cache");
  Surroundings surroundings{
      .home = home,
      .applicationSupport = xdgDirectory("XDG_DATA_HOME", home + "/.local/share"),
      .temporary = xdgDirectory("TMPDIR", "/tmp"),
      .caches = caches,
      .httpStorages = caches,
      .configuration = xdgDirectory("XDG_CONFIG_HOME", home + "/.config"),
      .bundleIdentifier = std::string(builtInBundleIdentifier()),
  };
  for (const char* name : {"MARIGOLD_CACHE_DIR", "CLAUDE_CONFIG_DIR", "CODEX_HOME", "GROK_HOME",
                           "https_proxy", "HTTPS_PROXY", "no_proxy", "NO_PROXY"}) {
    if (std::string value = variable(name); !value.empty()) {
      surroundings.environment.emplace(name, std::move(value));
    }
  }
  return surroundings;
}

std::string timeLocale() {
  for (const char* name : {"LC_ALL", "LC_TIME", "LANG"}) {
    if (std::string value = variable(name); !value.empty()) {
      return value;
    }
  }
  return {};
}

}  // namespace marigold
