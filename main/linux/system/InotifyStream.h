#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "ports/EventStream.h"
#include "ports/Log.h"

namespace marigold {

/// File-change notification through inotify, with one thread per stream.
///
/// Opening does not wait for the walk that sets up the watches. The first delivery, once they
/// stand, is `mustScanSubDirs` for the root and so covers everything since `open`.
///
/// A root that does not exist yet is waited for where the next part of its path will appear. It may
/// be a link, or be reached through links; below it none is followed. Events carry the
/// root's path as it was given, made absolute. A root that is moved, deleted or replaced, as itself
/// or with a directory above it, is reported when it goes and when something stands in its place
/// again. Not noticed: writes through memory maps, mounts, and moves of directories that this user
/// cannot read.
class InotifyStreamSource final : public EventStreamSource {
 public:
  /// Directories that one stream watches. Watches take kernel memory, about 1 KiB each, and come
  /// out of an allowance that all of the user's programs share.
  static constexpr std::size_t defaultWatchLimit = 16384;

  static constexpr Seconds defaultRetryAfter{30};

  /// That the system has no descriptor, queue or thread for a stream is noted in `log` once, until
  /// one opens. Running out of watches is noted in `log`, once for each stream; `log` must outlive
  /// the streams. The directories changed last are watched then, and the others as soon as there is
  /// room, for which a stream looks each time `retryAfter` has passed.
  explicit InotifyStreamSource(Log& log, std::size_t watchLimit = defaultWatchLimit,
                               Seconds retryAfter = defaultRetryAfter)
      : log_(log), watchLimit_(watchLimit), retryAfter_(retryAfter) {}

  /// The stream must not be destroyed from its own callback.
  [[nodiscard]] std::unique_ptr<EventStream> open(const std::string& path, Seconds latency,
                                                  Callback callback) override;

 private:
  // Notes, once as long as it lasts, that the system has nothing to watch with.
  std::unique_ptr<EventStream> refused();

  Log& log_;
  std::size_t watchLimit_;
  Seconds retryAfter_;
  bool saidRefused_ = false;
};

}  // namespace marigold
