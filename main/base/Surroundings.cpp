#include "base/Surroundings.h"

namespace marigold {

std::string Surroundings::variable(std::string_view name) const {
  const auto found = environment.find(name);
  return found == environment.end() ? std::string() : found->second;
}

std::string Surroundings::expandingTilde(std::string_view path) const {
  if (path == "~" || path.starts_with("~/")) {
    return home + std::string(path.substr(1));
  }
  return std::string(path);
}

std::string Surroundings::withTilde(const std::string& path) const {
  const bool within = !home.empty() && (path == home || path.starts_with(home + "/"));
  return within ? "~" + path.substr(home.size()) : path;
}

std::string Surroundings::toolHome(std::string_view name, std::string_view otherwise) const {
  const std::string chosen = variable(name);
  return withoutTrailingSlashes(expandingTilde(chosen.empty() ? otherwise : chosen));
}

std::string Surroundings::preferencesFile() const {
  return configuration + "/" + bundleIdentifier + "/preferences.json";
}

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) {
    path.pop_back();
  }
  return path;
}

}  // namespace marigold
