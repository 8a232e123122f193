#include "codex/RolloutWalk.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>

namespace marigold {

namespace {

// How many directories are entered one inside the other: each holds a descriptor open and some
// desktops allow a process 256. What lies deeper is entered from the root again. The tool itself
// nests three.
constexpr unsigned deepestAtOnce = 64;

constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

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
  Newest(std::size_t limit, Date now) : limit_(limit), now_(now) { ranks_.reserve(limit); }

  void offer(std::string_view directory, std::string_view name, const struct stat& status) {
    const Date modified = modificationDate(status);
    const Date order = trustedDate(modified, now_);
    if (ranks_.size() == limit_ && order <= ranks_.back().order) {
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
    const auto place = std::ranges::upper_bound(ranks_, order, std::greater<>(), &Rank::order);
    ranks_.insert(place, {.order = order, .slot = slot});
    RolloutFile& file = files_[slot];
    file.path.assign(directory).append(name);
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
    Date order;
    std::size_t slot;
  };
  std::size_t limit_;
  Date now_;
  std::vector<Rank> ranks_;
  std::vector<RolloutFile> files_;
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

// Where the name of the file at `path` begins.
std::size_t nameIn(std::string_view path) {
  return path.rfind('/') + 1;  // 0 when there is no slash
}

}  // namespace

// One walk of a tree.
class RolloutWalk {
 public:
  RolloutWalk(const RolloutTree& tree, std::size_t limit, Date now)
      : tree_(tree), newest_(limit, now) {}

  RolloutListing run() && {
    read(tree_.directory_, 0);
    while (!deeper_.empty()) {
      path_ = std::move(deeper_.back());
      deeper_.pop_back();
      read(RolloutTree::directoryFrom(tree_.enter({path_.data(), path_.size() - 1}).release()), 0);
    }
    listing_.newest = std::move(newest_).inOrder();
    return std::move(listing_);
  }

 private:
  void read(const RolloutTree::Directory& directory, unsigned depth) {
    const int descriptor = directory ? ::dirfd(directory.get()) : -1;
    if (descriptor < 0) {
      ++listing_.unreadable;
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
    const std::size_t length = path_.size();
    path_.append(name).append("/");
    if (depth > deepestAtOnce) {
      deeper_.push_back(path_);
    } else {
      read(RolloutTree::directoryFrom(::openat(parent, name, directoryFlags | O_NOFOLLOW)), depth);
    }
    path_.resize(length);
  }

  void consider(const char* name, const std::optional<struct stat>& status) {
    if (status && S_ISREG(status->st_mode)) {
      ++listing_.rolloutFiles;
      newest_.offer(path_, name, *status);
    }
  }

  const RolloutTree& tree_;
  std::string path_;  // of the directory being read, with a slash behind unless it is the root
  std::vector<std::string> deeper_;
  Newest newest_;
  RolloutListing listing_;
};

RolloutTree::RolloutTree(std::string root)
    : root_(std::move(root)), directory_(directoryFrom(::open(root_.c_str(), directoryFlags))) {}

RolloutTree::Directory RolloutTree::directoryFrom(int descriptor) {
  OwnedDescriptor owned(descriptor);
  Directory directory(owned.isOpen() ? ::fdopendir(owned.get()) : nullptr);
  if (directory) {
    (void)owned.release();
  }
  return directory;
}

OwnedDescriptor RolloutTree::enter(std::string_view path) const {
  const int root = directory_ ? ::dirfd(directory_.get()) : -1;
  OwnedDescriptor inside(root >= 0 ? ::openat(root, ".", directoryFlags) : -1);
  while (inside.isOpen() && !path.empty()) {
    const std::string component(path.substr(0, path.find('/')));
    path.remove_prefix(std::min(path.size(), component.size() + 1));
    inside =
        OwnedDescriptor(::openat(inside.get(), component.c_str(), directoryFlags | O_NOFOLLOW));
  }
  return inside;
}

RolloutListing RolloutTree::recentRolloutFiles(std::size_t limit, Date now) const {
  struct stat status = {};
  if (!directory_ && ::stat(root_.c_str(), &status) != 0) {
    return {};
  }
  RolloutListing listing = RolloutWalk(*this, limit, now).run();
  listing.rootExists = true;
  return listing;
}

std::optional<RolloutFile> RolloutTree::fileAt(const std::string& path) const {
  auto relative = below(root_, path);
  if (!relative) {
    relative = below(withoutLinks(root_), path);
  }
  const std::string rooted = "/" + std::string(relative.value_or(""));
  if (!isRolloutName(rooted.substr(nameIn(rooted))) || rooted.contains("/.") ||
      rooted.contains("//")) {
    return std::nullopt;
  }
  RolloutFile file{.path = rooted.substr(1), .modified = {}};
  const std::size_t name = nameIn(file.path);
  const OwnedDescriptor directory = enter({file.path.data(), name > 0 ? name - 1 : 0});
  const auto status =
      directory.isOpen() ? statusAt(directory.get(), &file.path[name]) : std::nullopt;
  if (!status || !S_ISREG(status->st_mode)) {
    return std::nullopt;
  }
  file.modified = modificationDate(*status);
  file.size = status->st_size;
  return file;
}

std::expected<BoundedFile, FileFailure> RolloutTree::open(const RolloutFile& file) const {
  const std::size_t name = nameIn(file.path);
  const OwnedDescriptor directory = enter({file.path.data(), name > 0 ? name - 1 : 0});
  if (!directory.isOpen()) {
    return std::unexpected(FileFailure::missing);
  }
  return BoundedFile::openAt(directory.get(), file.path.substr(name));
}

bool isRolloutName(std::string_view name) noexcept {
  return name.starts_with("rollout-") && name.ends_with(".jsonl");
}

}  // namespace marigold
