#include "base/BoundedFile.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace marigold {

namespace {

// POSIX calls the member st_mtim; macOS calls it st_mtimespec.
template <class Status>
const timespec& modificationTime(const Status& status) noexcept {
  if constexpr (requires { status.st_mtimespec; }) {
    return status.st_mtimespec;
  } else {
    return status.st_mtim;
  }
}

}  // namespace

Date modificationDate(const struct stat& status) noexcept {
  const timespec& time = modificationTime(status);
  return dateFromEpoch(static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9);
}

std::expected<BoundedFile, FileFailure> BoundedFile::open(const std::string& path) {
  return openAt(AT_FDCWD, path);
}

std::expected<BoundedFile, FileFailure> BoundedFile::openAt(int directory,
                                                            const std::string& path) {
  // O_NONBLOCK: a FIFO without a writer must not hang the open. O_NOCTTY: nor a terminal adopt us.
  OwnedDescriptor descriptor(
      ::openat(directory, path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!descriptor.isOpen()) {
    switch (errno) {
      case ENOENT:
      case ENOTDIR:
        return std::unexpected(FileFailure::missing);
      case ELOOP:  // a link
      case ENXIO:  // a socket, or a device without a driver
      case ENODEV:
        return std::unexpected(FileFailure::notRegular);
      default:
        return std::unexpected(FileFailure::unreadable);
    }
  }
  struct stat status = {};
  if (::fstat(descriptor.get(), &status) != 0) {
    return std::unexpected(FileFailure::unreadable);
  }
  if (!S_ISREG(status.st_mode)) {
    return std::unexpected(FileFailure::notRegular);
  }
  return BoundedFile(std::move(descriptor), status);
}

BoundedFile::BoundedFile(OwnedDescriptor descriptor, const struct stat& status) noexcept
    : descriptor_(std::move(descriptor)),
      size_(status.st_size),
      modified_(modificationDate(status)),
      fileNumber_(status.st_ino),
      owner_(status.st_uid),
      permissions_(status.st_mode & 07777U) {}

std::expected<std::size_t, FileFailure> BoundedFile::readAt(std::int64_t offset,
                                                            std::span<char> into) const {
  std::size_t done = 0;
  while (done < into.size()) {
    const auto rest = into.subspan(done);
    const ssize_t count = ::pread(descriptor_.get(), rest.data(), rest.size(),
                                  static_cast<off_t>(offset + static_cast<std::int64_t>(done)));
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      return std::unexpected(FileFailure::unreadable);
    }
    if (count == 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return done;
}

std::expected<std::string, FileFailure> readWholeFile(const std::string& path, std::size_t limit) {
  const auto file = BoundedFile::open(path);
  if (!file) {
    return std::unexpected(file.error());
  }
  if (file->size() > static_cast<std::int64_t>(limit)) {
    return std::unexpected(FileFailure::tooLarge);
  }
  std::string content(static_cast<std::size_t>(file->size()), '\0');
  const auto count = file->readAt(0, content);
  if (!count) {
    return std::unexpected(count.error());
  }
  content.resize(*count);
  return content;
}

}  // namespace marigold
