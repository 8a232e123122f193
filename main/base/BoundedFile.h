#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <span>
#include <string>

#include <sys/types.h>

#include "base/OwnedDescriptor.h"
#include "base/Time.h"

struct stat;

namespace marigold {

/// Why a file could not be read.
enum class FileFailure : std::uint8_t {
  missing,     ///< nothing at the path
  notRegular,  ///< a link, directory, FIFO, socket or device
  tooLarge,    ///< larger than the caller allows
  unreadable,  ///< no permission, or the system reported an error, which errno names
};

/// The modification time in a `stat` result.
[[nodiscard]] Date modificationDate(const struct stat& status) noexcept;

/// A regular file opened for reading: never through a link in its last component, never blocking,
/// and checked after it was opened, so that the path is trusted only once.
class BoundedFile {
 public:
  [[nodiscard]] static std::expected<BoundedFile, FileFailure> open(const std::string& path);
  /// The same for `path` as seen from an open directory.
  [[nodiscard]] static std::expected<BoundedFile, FileFailure> openAt(int directory,
                                                                      const std::string& path);

  /// Bytes, when it was opened.
  [[nodiscard]] std::int64_t size() const noexcept { return size_; }
  /// Modification time, when it was opened.
  [[nodiscard]] Date modified() const noexcept { return modified_; }
  /// What its file system knows it by: another file of the same name has another number.
  [[nodiscard]] std::uint64_t fileNumber() const noexcept { return fileNumber_; }
  /// The user it belonged to, when it was opened.
  [[nodiscard]] uid_t owner() const noexcept { return owner_; }
  /// Its permission bits, when it was opened.
  [[nodiscard]] mode_t permissions() const noexcept { return permissions_; }

  /// Reads up to `into.size()` bytes from `offset`; fewer only at the end of the file. Gives the
  /// number of bytes read.
  [[nodiscard]] std::expected<std::size_t, FileFailure> readAt(std::int64_t offset,
                                                               std::span<char> into) const;

 private:
  BoundedFile(OwnedDescriptor descriptor, const struct stat& status) noexcept;

  OwnedDescriptor descriptor_;
  std::int64_t size_;
  Date modified_;
  std::uint64_t fileNumber_;
  uid_t owner_;
  mode_t permissions_;
};

/// The whole content of the regular file at `path`, which holds at most `limit` bytes.
[[nodiscard]] std::expected<std::string, FileFailure> readWholeFile(const std::string& path,
                                                                    std::size_t limit);

}  // namespace marigold
