#include "base/AtomicFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/OwnedDescriptor.h"

namespace marigold {

namespace {

// Of a temporary file. What mkostemp puts in place of the X has the same length.
constexpr std::string_view temporaryInfix = ".marigold-";
constexpr std::string_view temporaryEnd = "XXXXXX";

std::unexpected<std::error_code> lastError() {
  return std::unexpected(std::error_code(errno, std::generic_category()));
}

std::string parentOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) {
    return ".";
  }
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// Makes the rename itself durable. A file system that cannot sync directories keeps the file
// anyway.
void syncDirectory(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor >= 0) {
    ::fsync(descriptor);
    ::close(descriptor);
  }
}

// A temporary file is locked as long as it is written.
bool isAbandoned(const std::filesystem::path& path) {
  const OwnedDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  return file.isOpen() && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

template <class Which>
void removeTemporaries(const std::string& path, const Which& which) {
  std::error_code error;
  const std::string start =
      std::filesystem::path(path).filename().string() + std::string(temporaryInfix);
  for (std::filesystem::directory_iterator entry(parentOf(path), error), end;
       !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (name.starts_with(start) && name.size() == start.size() + temporaryEnd.size() &&
        which(entry->path())) {
      ::unlink(entry->path().c_str());
    }
  }
}

}  // namespace

void removeTemporariesOf(const std::string& path) {
  removeTemporaries(path, [](const std::filesystem::path& /*each*/) { return true; });
}

std::expected<void, std::error_code> replaceFile(const std::string& path, std::string_view bytes) {
  removeTemporaries(path, isAbandoned);  // left by those who were killed
  std::string temporary = std::string(path).append(temporaryInfix).append(temporaryEnd);
  const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);  // mode 0600
  if (descriptor < 0) {
    return lastError();
  }
  (void)::flock(descriptor, LOCK_EX | LOCK_NB);
  const bool written = writeAll(descriptor, bytes) && ::fsync(descriptor) == 0;
  const int failure = errno;
  // close() may report a write error that a network file system noticed late.
  const bool closed = ::close(descriptor) == 0;
  if (!written || !closed || ::rename(temporary.c_str(), path.c_str()) != 0) {
    if (!written) {
      errno = failure;
    }
    const auto error = lastError();
    ::unlink(temporary.c_str());
    return error;
  }
  syncDirectory(parentOf(path));
  return {};
}

std::expected<void, std::error_code> createDirectories(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) == 0) {
    return {};
  }
  if (errno == EEXIST) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
      return lastError();
    }
    if (S_ISDIR(status.st_mode)) {
      return {};
    }
    errno = ENOTDIR;
    return lastError();
  }
  if (errno != ENOENT || path.find('/', 1) == std::string::npos) {
    return lastError();
  }
  if (auto parent = createDirectories(parentOf(path)); !parent) {
    return parent;
  }
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    return lastError();
  }
  return {};
}

}  // namespace marigold
