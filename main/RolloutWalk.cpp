#include "RolloutWalk.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <memory>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "BoundedFile.h"

namespace marigold {

namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

// Takes over `descriptor`.
Directory directoryFrom(int descriptor) {
  Directory directory(descriptor < 0 ? nullptr : ::fdopendir(descriptor));
  if (!directory && descriptor >= 0) {
    ::close(descriptor);
  }
  return directory;
}

std::optional<struct stat> statusAt(int directory, const char* name) {
  struct stat status = {};
  if (::fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return std::nullopt;
  }
  return status;
}

// The `limit` newest files offered so far. Ranks are small and moved often; the files with their
// paths stay in place, and a file that drops out leaves its memory to the next.
class Newest {
 public:
  explicit Newest(std::size_t limit) : limit_(limit) { ranks_.reserve(limit); }

  void offer(std::string_view directory, std::string_view name, const struct stat& status) {
    const Date modified = modificationDate(status);
    if (ranks_.size() == limit_ && (limit_ == 0 || modified <= ranks_.back().modified)) {
      return;
    }
    std::size_t slot = files_.size();
    if (ranks_.size() == limit_) {
      slot = ranks_.back().slot;
      ranks_.pop_back();
    } else {
      files_.emplace_back();
    }
    // Behind its equals: ties keep the order of the walk.
    const auto place =
        std::ranges::upper_bound(ranks_, modified, std::greater<>(), &Rank::modified);
    ranks_.insert(place, {.modified = modified, .slot = slot});
    RolloutFile& file = files_[slot];
    file.path.assign(directory).append("/").append(name);
    file.modified = modified;
    file.size = status.st_size;
  }

  [[nodiscard]] std::vector<RolloutFile> inOrder() && {
    std::vector<RolloutFile> ordered;
    ordered.reserve(ranks_.size());
    for (const Rank& rank : ranks_) {
      ordered.push_back(std::move(files_[rank.slot]));
    }
    return ordered;
  }

 private:
  struct Rank {
    Date modified;
    std::size_t slot;
  };
  std::size_t limit_;
  std::vector<Rank> ranks_;
  std::vector<RolloutFile> files_;
};

class Walk {
 public:
  Walk(std::string root, std::size_t limit) : path_(std::move(root)), newest_(limit) {}

  RolloutListing run() && {
    const int root = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct stat status = {};
    listing_.rootExists = root >= 0 || ::stat(path_.c_str(), &status) == 0;
    if (listing_.rootExists) {
      read(directoryFrom(root), 0);
    }
    listing_.newest = std::move(newest_).inOrder();
    return std::move(listing_);
  }

 private:
  void read(const Directory& directory, unsigned depth) {
    const int descriptor = directory ? ::dirfd(directory.get()) : -1;
    if (descriptor < 0) {
      ++listing_.skipped;
      return;
    }
    ++listing_.directories;
    // The stream is this call's own, which makes readdir safe among threads.
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    while (const dirent* entry = ::readdir(directory.get())) {
      const char* name = static_cast<const char*>(entry->d_name);
      if (*name == '.') {
        continue;
      }
      switch (entry->d_type) {
        case DT_DIR:
          enter(descriptor, name, depth + 1);
          break;
        case DT_REG:
          if (isRolloutName(name)) {
            consider(name, statusAt(descriptor, name));
          }
          break;
        case DT_UNKNOWN: {  // some file systems do not tell
          const auto status = statusAt(descriptor, name);
          if (status && S_ISDIR(status->st_mode)) {
            enter(descriptor, name, depth + 1);
          } else if (isRolloutName(name)) {
            consider(name, status);
          }
          break;
        }
        default:
          break;
      }
    }
  }

  void enter(int parent, const char* name, unsigned depth) {
    if (depth > deepestRolloutDirectory) {
      ++listing_.skipped;
      return;
    }
    const std::size_t length = path_.size();
    path_.append("/").append(name);
    read(directoryFrom(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)),
         depth);
    path_.resize(length);
  }

  void consider(const char* name, const std::optional<struct stat>& status) {
    if (status && S_ISREG(status->st_mode)) {
      ++listing_.rolloutFiles;
      newest_.offer(path_, name, *status);
    }
  }

  std::string path_;  // of the directory being read
  Newest newest_;
  RolloutListing listing_;
};

// What of `path` follows the directory `root` and a slash.
std::optional<std::string_view> below(std::string_view root, std::string_view path) {
  if (root.empty() || !path.starts_with(root) || path.substr(root.size(), 1) != "/") {
    return std::nullopt;
  }
  return path.substr(root.size() + 1);
}

std::string withoutLinks(const std::string& path) {
  std::array<char, PATH_MAX> resolved{};
  return ::realpath(path.c_str(), resolved.data()) != nullptr ? resolved.data() : std::string();
}

}  // namespace

bool isRolloutName(std::string_view name) noexcept {
  return name.starts_with("rollout-") && name.ends_with(".jsonl");
}

RolloutListing newestRolloutFiles(const std::string& root, std::size_t limit) {
  return Walk(root, limit).run();
}

std::optional<RolloutFile> rolloutFileAt(const std::string& root, const std::string& path) {
  auto relative = below(root, path);
  if (!relative) {
    relative = below(withoutLinks(root), path);
  }
  if (!relative || !isRolloutName(relative->substr(relative->rfind('/') + 1)) ||
      std::ranges::count(*relative, '/') > deepestRolloutDirectory) {
    return std::nullopt;
  }
  std::string walked = root;
  for (std::string_view rest = *relative;;) {
    const std::size_t slash = rest.find('/');
    const std::string_view component = rest.substr(0, slash);
    if (component.empty() || component.starts_with('.')) {
      return std::nullopt;
    }
    walked.append("/").append(component);
    const auto status = statusAt(AT_FDCWD, walked.c_str());
    if (!status) {
      return std::nullopt;
    }
    if (slash == std::string_view::npos) {
      if (!S_ISREG(status->st_mode)) {
        return std::nullopt;
      }
      return RolloutFile{.path = std::move(walked),
                         .modified = modificationDate(*status),
                         .size = status->st_size};
    }
    if (!S_ISDIR(status->st_mode)) {
      return std::nullopt;
    }
    rest.remove_prefix(slash + 1);
  }
}

}  // namespace marigold
