#include "Floors.h"

#include <array>
#include <cstring>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace marigold::bench {

namespace {

std::size_t walk(int directory) {
  std::size_t files = 0;
  alignas(dirent64) std::array<char, 32768> entries;
  long length = 0;
  while ((length = ::syscall(SYS_getdents64, directory, entries.data(), entries.size())) > 0) {
    for (long at = 0; at < length;) {
      const auto* entry = reinterpret_cast<const dirent64*>(entries.data() + at);
      at += entry->d_reclen;
      if (entry->d_type == DT_REG) {
        struct stat status;
        files += ::fstatat(directory, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 ? 1U : 0U;
      } else if (entry->d_name[0] != '.') {
        files += walk(::openat(directory, entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      }
    }
  }
  ::close(directory);
  return files;
}

}  // namespace

std::size_t bareWalk(const std::string& root) {
  return walk(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool bareTailRead(int descriptor, std::span<char> into, std::string_view mark) {
  const off_t size = ::lseek(descriptor, 0, SEEK_END);
  const auto length = static_cast<off_t>(into.size());
  auto rest =
      static_cast<std::size_t>(::pread(descriptor, into.data(), into.size(), size - length));
  const std::size_t anchor = mark.find('_');
  while (const void* found = ::memrchr(into.data(), '_', rest)) {
    rest = static_cast<std::size_t>(static_cast<const char*>(found) - into.data());
    if (rest >= anchor && std::memcmp(into.data() + rest - anchor, mark.data(), mark.size()) == 0) {
      return true;
    }
  }
  return false;
}

}  // namespace marigold::bench
