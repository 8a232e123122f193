#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <dirent.h>

#include "base/BoundedFile.h"
#include "base/OwnedDescriptor.h"
#include "base/Time.h"

namespace marigold {

struct RolloutFile {
  std::string path;  ///< below the root
  Date modified;
  std::int64_t size = 0;  ///< bytes
};

/// What one walk of the tree found.
struct RolloutListing {
  bool rootExists = false;
  /// By modification time, newest first, those from the future last; ties in walk order.
  std::vector<RolloutFile> newest;
  std::size_t rolloutFiles = 0;  ///< all that were met
  std::size_t directories = 0;   ///< that were read, the root among them
  std::size_t unreadable = 0;    ///< directories that could not be read
};

/// The rollout files: the regular files anywhere below a root directory named "rollout-" …
/// ".jsonl". The root may be a link; below it no link is followed, by whatever is swapped while it
/// is looked at, and nothing hidden is entered. What is gone when it is looked at is left out.
class RolloutTree {
 public:
  /// Opens the root.
  explicit RolloutTree(std::string root);

  /// The at most `limit` newest files, at least one. Reads the tree; once.
  [[nodiscard]] RolloutListing recentRolloutFiles(std::size_t limit, Date now) const;
  /// The file at the absolute `path` if a walk would find it. `path` may name the root with its
  /// links resolved.
  [[nodiscard]] std::optional<RolloutFile> fileAt(const std::string& path) const;
  [[nodiscard]] std::expected<BoundedFile, FileFailure> open(const RolloutFile& file) const;
  /// The absolute path, in the root's own spelling.
  [[nodiscard]] std::string pathOf(const RolloutFile& file) const {
    return root_ + "/" + file.path;
  }

 private:
  friend class RolloutWalk;
  struct CloseDirectory {
    void operator()(DIR* directory) const noexcept { ::closedir(directory); }
  };
  using Directory = std::unique_ptr<DIR, CloseDirectory>;

  // Takes over `descriptor`.
  [[nodiscard]] static Directory directoryFrom(int descriptor);
  // The directory at `path` below the root, or the root itself for an empty one.
  [[nodiscard]] OwnedDescriptor enter(std::string_view path) const;

  std::string root_;
  Directory directory_;  // null when it could not be opened
};

[[nodiscard]] bool isRolloutName(std::string_view name) noexcept;

}  // namespace marigold
