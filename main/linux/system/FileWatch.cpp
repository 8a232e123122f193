#include "linux/system/FileWatch.h"

#include <system_error>
#include <utility>

#include <sys/inotify.h>

namespace marigold {

std::string linkTarget(const std::string& path) {
  constexpr int mostLinks = 40;  // as many as the kernel follows
  std::filesystem::path target = path;
  for (int links = 0; links < mostLinks; ++links) {
    std::error_code notALink;
    const auto next = std::filesystem::read_symlink(target, notALink);
    if (notALink) {
      break;
    }
    target = target.parent_path() / next;
  }
  return target;
}

FileWatch::FileWatch(LinuxEventLoop& loop, std::string path, Work onEvent)
    : loop_(loop), path_(std::move(path)), onEvent_(std::move(onEvent)) {
  arm();
}

// With a fresh queue each time, so that nothing stays behind of directories that moved. What
// happens meanwhile is seen by whoever looks at the file afterwards.
void FileWatch::arm() {
  loop_.unwatch(events_.get());
  events_ = OwnedDescriptor(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  for (const std::filesystem::path path : {path_, linkTarget(path_)}) {
    for (auto part = path; part.has_relative_path(); part = part.parent_path()) {
      std::error_code ignored;
      if (part == path || std::filesystem::is_symlink(part, ignored)) {
        watchNearest(part.parent_path());
        watchNearest(part.parent_path());  // again, for one made while the first try looked above
      }
    }
  }
  if (events_.isOpen()) {
    loop_.watch(events_.get(), [this] {
      arm();
      onEvent_();
    });
  }
}

void FileWatch::watchNearest(std::filesystem::path directory) const {
  constexpr std::uint32_t changes =
      IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  while (::inotify_add_watch(events_.get(), directory.c_str(), changes) < 0 &&
         directory.has_relative_path()) {
    directory = directory.parent_path();
  }
}

}  // namespace marigold
