#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Time.h"

// Finding of rollout files: the regular files anywhere below a root directory named "rollout-" …
// ".jsonl". The root may be a link; below it no link is followed and nothing hidden is entered.

namespace marigold {

struct RolloutFile {
  std::string path;
  Date modified;
  std::int64_t size = 0;  ///< bytes
};

/// What one walk of the tree found.
struct RolloutListing {
  bool rootExists = false;
  std::vector<RolloutFile> newest;  ///< by modification time, newest first; ties in walk order
  std::size_t rolloutFiles = 0;     ///< all that were met
  std::size_t directories = 0;      ///< that were read, the root among them
  std::size_t skipped = 0;          ///< directories that could not be read or lie too deep
};

/// How many directories below the root are entered one inside the other. Each holds a descriptor
/// open and some desktops allow a process 256; the tool itself nests three.
inline constexpr unsigned deepestRolloutDirectory = 64;

[[nodiscard]] bool isRolloutName(std::string_view name) noexcept;

/// The at most `limit` newest rollout files below `root`. The tree may change meanwhile: what is
/// gone when it is looked at is left out.
[[nodiscard]] RolloutListing newestRolloutFiles(const std::string& root, std::size_t limit);

/// The file at `path` if a walk of `root` would find it; its path in the walk's spelling. `path`
/// may name the root with its links resolved.
[[nodiscard]] std::optional<RolloutFile> rolloutFileAt(const std::string& root,
                                                       const std::string& path);

}  // namespace marigold
