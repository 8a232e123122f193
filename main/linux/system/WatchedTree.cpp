#include "linux/system/WatchedTree.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>

namespace marigold {

namespace {

namespace fs = std::filesystem;

// IN_MODIFY comes with each append, so IN_CLOSE_WRITE would add nothing; changed times and
// permissions bring no new content.
constexpr std::uint32_t treeMask = anyWatchMask | IN_ONLYDIR | IN_EXCL_UNLINK | IN_MODIFY |
                                   IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

bool isShortage(int error) {
  return error == ENOSPC || error == ENOMEM;
}

// Whether the directory `inner` is `outer` or lies below it.
bool isWithin(std::string_view inner, std::string_view outer) {
  return inner.starts_with(outer) && (inner.size() == outer.size() || inner[outer.size()] == '/');
}

}  // namespace

bool WatchedTree::begin() {
  watched_.clear();
  refused_.clear();
  queue_.close();  // before another is asked for: the system allows a user only so many
  queue_ = OwnedDescriptor(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  return queue_.isOpen();
}

std::expected<int, int> WatchedTree::addWatch(const fs::path& path, std::uint32_t mask) {
  const int watch = ::inotify_add_watch(queue_.get(), path.c_str(), mask);
  return watch >= 0 ? std::expected<int, int>(watch) : refusal(errno);
}

bool WatchedTree::watchRoot(std::string realRoot) {
  realRoot_ = std::move(realRoot);
  watch({""}, Report::nothing);
  return !watched_.empty();
}

void WatchedTree::watchNew(const std::string& directory) {
  watch({directory}, Report::contents);
}

void WatchedTree::retry() {
  watch(std::exchange(refused_, {}), Report::rescan);
}

const std::string* WatchedTree::directory(int watch) const {
  const auto found = watched_.find(watch);
  return found == watched_.end() ? nullptr : &found->second;
}

void WatchedTree::forget(const std::string& directory) {
  std::erase_if(watched_, [&](const auto& entry) {
    const auto& [watch, other] = entry;
    const bool within = isWithin(other, directory);
    if (within) {
      ::inotify_rm_watch(queue_.get(), watch);
    }
    return within;
  });
}

// Watches the directories `waiting`, the last one first, and all below them, newest first. Each is
// watched before it is listed: what is created later has an event, what was created before is in
// the list.
void WatchedTree::watch(std::vector<std::string> waiting, Report report) {
  while (!waiting.empty() && isWanted_()) {
    const std::string directory = waiting.back();
    auto watch = addDirectory(directory);
    if (!watch && isShortage(watch.error()) && report == Report::contents && makeRoom(directory)) {
      watch = addDirectory(directory);
    }
    if (!watch && isShortage(watch.error())) {
      if (report == Report::contents) {
        delivery_.add(directory, eventFlag::mustScanSubDirs);
      }
      refused_.insert(refused_.end(), waiting.begin(), waiting.end());
      return;
    }
    waiting.pop_back();
    if (!watch) {
      continue;  // not readable; or gone or replaced, of which an event will tell
    }
    watched_.insert_or_assign(*watch, directory);
    if (report == Report::rescan) {
      delivery_.add(directory, eventFlag::mustScanSubDirs);
    }
    for (std::string& inside : listed(directory, report)) {
      waiting.push_back(std::move(inside));
    }
  }
}

std::expected<int, int> WatchedTree::addDirectory(const std::string& directory) {
  if (watched_.size() >= limit_) {
    return refusal(ENOSPC);
  }
  return addWatch(realRoot_ + directory, treeMask);
}

std::unexpected<int> WatchedTree::refusal(int error) {
  if (isShortage(error) && !std::exchange(saidOutOfWatches_, true)) {
    log_.error("out of file watches, some changes will be seen only at the next refresh");
  }
  return std::unexpected(error);
}

// The directories in `directory`, the newest last.
std::vector<std::string> WatchedTree::listed(const std::string& directory, Report report) {
  std::vector<std::pair<fs::file_time_type, std::string>> found;
  std::error_code failure;
  for (fs::directory_iterator entry(realRoot_ + directory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    std::error_code unknown;
    const bool isDirectory = !entry->is_symlink(unknown) && entry->is_directory(unknown);
    std::string inside = directory + "/" + entry->path().filename().native();
    if (report == Report::contents) {
      const auto kind = isDirectory ? eventFlag::itemIsDir : eventFlag::itemIsFile;
      delivery_.add(inside, eventFlag::itemCreated | kind);
    }
    if (isDirectory) {
      found.emplace_back(entry->last_write_time(unknown), std::move(inside));
    }
  }
  std::ranges::sort(found);
  std::vector<std::string> paths;
  paths.reserve(found.size());
  for (auto& [changed, inside] : found) {
    paths.push_back(std::move(inside));
  }
  return paths;
}

// Gives up the watches on the directories that changed longest ago, a share of all so that a burst
// of new ones does not look for them each time. False when all lead to `directory`.
bool WatchedTree::makeRoom(const std::string& directory) {
  std::vector<std::pair<fs::file_time_type, int>> byAge;
  for (const auto& [watch, other] : watched_) {
    std::error_code unknown;
    if (!isWithin(directory, other)) {
      byAge.emplace_back(fs::last_write_time(realRoot_ + other, unknown), watch);
    }
  }
  if (byAge.empty()) {
    return false;
  }
  std::ranges::sort(byAge);
  byAge.resize(1 + byAge.size() / 16);
  std::vector<std::string> oldest;
  for (const auto& [changed, watch] : byAge) {
    ::inotify_rm_watch(queue_.get(), watch);
    oldest.push_back(std::move(watched_.extract(watch).mapped()));
  }
  refused_.insert(refused_.begin(), oldest.begin(), oldest.end());
  return true;
}

}  // namespace marigold
