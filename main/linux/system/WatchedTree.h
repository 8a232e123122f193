#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <sys/inotify.h>

#include "base/OwnedDescriptor.h"
#include "linux/system/FileEventDelivery.h"
#include "ports/Log.h"

namespace marigold {

/// Every inotify mask holds these. One inode may be watched for several reasons, so masks add up.
/// No link is followed: the links in the root's path are resolved one by one.
inline constexpr std::uint32_t anyWatchMask = IN_MASK_ADD | IN_DONT_FOLLOW;

/// An inotify queue, and the watches on a directory and all below it that feed it. Where the system
/// or the limit refuses watches, the directories that changed last have them. Directories are named
/// relative to the root, which is "", and begin with '/'. Belongs to one thread.
class WatchedTree {
 public:
  /// Running out of watches is noted in `log`, once. `isWanted` is asked between two directories; a
  /// walk ends at once when it is false. The references must outlive this.
  WatchedTree(FileEventDelivery& delivery, std::size_t limit, Log& log,
              std::function<bool()> isWanted)
      : delivery_(delivery), limit_(limit), log_(log), isWanted_(std::move(isWanted)) {}

  /// Begins with a fresh queue, so that nothing stays behind of old watches and their events. False
  /// when the system has none to give.
  [[nodiscard]] bool begin();
  [[nodiscard]] int queue() const { return queue_.get(); }
  /// Watches something outside the tree; its number, or the error that says why there is none.
  [[nodiscard]] std::expected<int, int> addWatch(const std::filesystem::path& path,
                                                 std::uint32_t mask);

  /// Watches the root, a path without links, and all below it. False when not even the root is.
  [[nodiscard]] bool watchRoot(std::string realRoot);
  /// Watches a directory that has just appeared, and all below it, and tells what they hold. Where
  /// there is no room, older ones give up theirs: what has just appeared is where something
  /// happens.
  void watchNew(const std::string& directory);
  /// Ends the watches on a directory and all below it.
  void forget(const std::string& directory);
  /// The kernel has ended this watch.
  void forget(int watch) { watched_.erase(watch); }
  /// Tries again what was refused.
  void retry();

  /// The directory with this watch; null when it is none of the tree's.
  [[nodiscard]] const std::string* directory(int watch) const;
  [[nodiscard]] bool isComplete() const { return refused_.empty(); }

 private:
  // What is told of a directory once it is watched.
  enum class Report : std::uint8_t {
    nothing,
    contents,  // what it holds, as new
    rescan,
  };

  void watch(std::vector<std::string> waiting, Report report);
  std::expected<int, int> addDirectory(const std::string& directory);
  std::unexpected<int> refusal(int error);
  std::vector<std::string> listed(const std::string& directory, Report report);
  bool makeRoom(const std::string& directory);

  FileEventDelivery& delivery_;
  std::size_t limit_;
  Log& log_;
  std::function<bool()> isWanted_;
  OwnedDescriptor queue_{-1};
  std::string realRoot_;
  std::unordered_map<int, std::string> watched_;
  std::vector<std::string> refused_;  // with all below them; newest last
  bool saidOutOfWatches_ = false;
};

}  // namespace marigold
