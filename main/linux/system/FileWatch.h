#pragma once

#include <filesystem>
#include <string>

#include "base/OwnedDescriptor.h"
#include "linux/system/LinuxEventLoop.h"

namespace marigold {

/// Where the links at `path` lead, be there a file yet or not. In a circle of links: any of them.
[[nodiscard]] std::string linkTarget(const std::string& path);

/// Tells when the file at a path, or where a link there leads, may have another content, come or
/// go. Only the directories are watched that the two and the links on their paths stand in, or,
/// until they exist, the nearest ones above. Nothing is told where the system refuses a watch.
class FileWatch {
 public:
  /// Calls `onEvent` on the thread of `loop`, which must outlive this object.
  FileWatch(LinuxEventLoop& loop, std::string path, Work onEvent);
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;
  ~FileWatch() { loop_.unwatch(events_.get()); }

 private:
  void arm();
  void watchNearest(std::filesystem::path directory) const;

  LinuxEventLoop& loop_;
  const std::string path_;
  const Work onEvent_;
  OwnedDescriptor events_{-1};
};

}  // namespace marigold
