#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Pinned.h"
#include "base/Time.h"

namespace marigold {

/// What happened to one path. The values are those of the macOS file-system event stream.
namespace eventFlag {
inline constexpr std::uint32_t mustScanSubDirs = 0x1;  ///< events below the path were merged away
inline constexpr std::uint32_t userDropped = 0x2;      ///< this process was too slow
inline constexpr std::uint32_t kernelDropped = 0x4;    ///< the kernel ran out of room
inline constexpr std::uint32_t rootChanged = 0x20;  ///< the watched directory came, went or moved
inline constexpr std::uint32_t itemCreated = 0x100;
inline constexpr std::uint32_t itemRemoved = 0x200;
inline constexpr std::uint32_t itemRenamed = 0x800;
inline constexpr std::uint32_t itemModified = 0x1000;
inline constexpr std::uint32_t itemIsFile = 0x10000;
inline constexpr std::uint32_t itemIsDir = 0x20000;
}  // namespace eventFlag

struct FileEvent {
  std::string path;
  std::uint32_t flags = 0;

  bool operator==(const FileEvent&) const = default;
};

/// A running recursive watch on one directory. Destroying it ends the watch: once the destructor
/// returns, the callback is not called again.
class EventStream : public Pinned {};

/// The system's file-change notification.
class EventStreamSource : public Pinned {
 public:
  /// Called with the events of one delivery, in order, on a thread of the stream's own. No events
  /// at all means that something changed and nothing more is known.
  using Callback = std::function<void(const std::vector<FileEvent>&)>;

  /// Watches `path` and everything below it from now on, also once it exists or exists again. The
  /// first event after a quiet time is delivered at once, later ones no sooner than `latency` after
  /// the delivery before. Null when the system refuses.
  [[nodiscard]] virtual std::unique_ptr<EventStream> open(const std::string& path, Seconds latency,
                                                          Callback callback) = 0;
};

}  // namespace marigold
