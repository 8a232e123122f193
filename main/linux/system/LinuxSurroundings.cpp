#include "linux/system/LinuxSurroundings.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <pwd.h>
#include <unistd.h>

#include "model/DiskCache.h"

namespace marigold {

namespace {

std::string variable(const Environment& environment, const char* name) {
  const auto found = environment.find(name);
  return found == environment.end() ? std::string() : found->second;
}

std::string homeDirectory(const Environment& environment) {
  if (std::string home = variable(environment, "HOME"); home.starts_with('/')) {
    return withoutTrailingSlashes(std::move(home));
  }
  std::array<char, 16384> buffer{};
  passwd entry = {};
  passwd* found = nullptr;
  ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
  return found == nullptr ? "/" : withoutTrailingSlashes(found->pw_dir);
}

}  // namespace

Environment processEnvironment() {
  Environment environment;
  for (char** entry = environ; *entry != nullptr; entry = std::next(entry)) {
    const std::string_view text = *entry;
    const auto end = std::min(text.find('='), text.size());
    environment.emplace(text.substr(0, end), text.substr(std::min(end + 1, text.size())));
  }
  return environment;
}

Surroundings linuxSurroundings(const Environment& environment) {
  const std::string home = homeDirectory(environment);
  // The XDG rules: a relative path is to be ignored.
  const auto directory = [&](const char* name, const std::string& otherwise) {
    std::string path = variable(environment, name);
    return path.starts_with('/') ? withoutTrailingSlashes(std::move(path)) : otherwise;
  };
  const std::string caches = directory("XDG_CACHE_HOME", home + "/.cache");
  Surroundings surroundings{
      .home = home,
      .applicationSupport = directory("XDG_DATA_HOME", home + "/.local/share"),
      .temporary = directory("TMPDIR", "/tmp"),
      .caches = caches,
      .httpStorages = caches,
      .configuration = directory("XDG_CONFIG_HOME", home + "/.config"),
      .bundleIdentifier = std::string(builtInBundleIdentifier()),
  };
  for (const char* name : {"MARIGOLD_CACHE_DIR", "CLAUDE_CONFIG_DIR", "CODEX_HOME", "GROK_HOME",
                           "https_proxy", "HTTPS_PROXY", "no_proxy", "NO_PROXY"}) {
    if (std::string value = variable(environment, name); !value.empty()) {
      surroundings.environment.emplace(name, std::move(value));
    }
  }
  return surroundings;
}

std::string timeLocale(const Environment& environment) {
  for (const char* name : {"LC_ALL", "LC_TIME", "LANG"}) {
    if (std::string value = variable(environment, name); !value.empty()) {
      return value;
    }
  }
  return {};
}

std::filesystem::path programFile() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored);
}

}  // namespace marigold
