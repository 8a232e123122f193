#pragma once

#include <map>
#include <string>
#include <string_view>

namespace marigold {

/// Where this process lives: the directories and environment it was started with, read once by the
/// program's entry. Paths are absolute and end without a slash.
struct Surroundings {
  std::string home;                ///< the user's home directory
  std::string applicationSupport;  ///< per-user application data; empty when the system has none
  std::string temporary;           ///< the system's temporary directory
  std::string caches;              ///< where the system may keep caches named by bundle identifier
  std::string httpStorages;        ///< the same for HTTP storages
  std::string configuration;       ///< per-user settings; where they live on this desktop
  std::string bundleIdentifier;    ///< empty when not available
  std::map<std::string, std::string, std::less<>> environment;

  /// The value of an environment variable; empty when unset.
  [[nodiscard]] std::string variable(std::string_view name) const;
  /// `path` with a leading "~" or "~/" replaced by the home directory.
  [[nodiscard]] std::string expandingTilde(std::string_view path) const;
  /// `path` as a person reads it: the home directory is "~".
  [[nodiscard]] std::string withTilde(const std::string& path) const;
  /// The directory that the environment variable `name` holds when set and not empty, else
  /// `otherwise`; a leading "~" is expanded and no slash left at the end.
  [[nodiscard]] std::string toolHome(std::string_view name, std::string_view otherwise) const;
  /// Where the user's choices are kept on a desktop that keeps them in a file.
  [[nodiscard]] std::string preferencesFile() const;
  /// A development build has a bundle identifier of its own, which ends with ".dev".
  [[nodiscard]] bool isDevBuild() const { return bundleIdentifier.ends_with(".dev"); }
};

/// `path` without slashes at its end; "/" stays.
[[nodiscard]] std::string withoutTrailingSlashes(std::string path);

}  // namespace marigold
