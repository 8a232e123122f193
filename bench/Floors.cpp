#include "Floors.h"

#include <algorithm>
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

// Entries lie in the buffer as the kernel wrote them, one behind the other.
// NOLINTBEGIN(*-reinterpret-cast, *-array-to-pointer-decay)
std::size_t walk(int directory) {
  if (directory < 0) {
    return 0;
  }
  std::size_t files = 0;
  alignas(dirent64) std::array<char, 32768> entries{};
  long length = 0;
  while ((length = ::syscall(SYS_getdents64, directory, entries.data(), entries.size())) > 0) {
    for (std::size_t at = 0; at < static_cast<std::size_t>(length);) {
      const auto* entry = reinterpret_cast<const dirent64*>(&entries[at]);
      at += entry->d_reclen;
      if (entry->d_type == DT_REG) {
        struct stat status = {};
        files += ::fstatat(directory, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 ? 1U : 0U;
      } else if (entry->d_name[0] != '.') {
        files += walk(::openat(directory, entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      }
    }
  }
  ::close(directory);
  return files;
}
// NOLINTEND(*-reinterpret-cast, *-array-to-pointer-decay)

std::string_view tail(int descriptor, std::span<char> into) {
  const off_t size = ::lseek(descriptor, 0, SEEK_END);
  const auto length = static_cast<off_t>(into.size());
  const ssize_t count = ::pread(descriptor, into.data(), into.size(), size - length);
  return {into.data(), static_cast<std::size_t>(count)};
}

}  // namespace

std::size_t bareWalk(const std::string& root) {
  return walk(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool bareTailRead(int descriptor, std::span<char> into, std::string_view mark) {
  std::string_view rest = tail(descriptor, into);
  const std::size_t anchor = mark.find('_');
  while (const void* found = ::memrchr(rest.data(), mark[anchor], rest.size())) {
    const auto at = static_cast<std::size_t>(static_cast<const char*>(found) - rest.data());
    if (at >= anchor && std::memcmp(&into[at - anchor], mark.data(), mark.size()) == 0) {
      return true;
    }
    rest = rest.substr(0, at);
  }
  return false;
}

std::size_t bareSearch(int descriptor, std::span<char> into,
                       std::span<const std::string_view> needles) {
  const std::string_view bytes = tail(descriptor, into);
  return static_cast<std::size_t>(std::ranges::count_if(needles, [&](std::string_view needle) {
    return ::memmem(bytes.data(), bytes.size(), needle.data(), needle.size()) != nullptr;
  }));
}

std::size_t bareScan(std::string_view text, std::span<char> into) {
  bool inside = false;
  std::size_t outside = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    into[at] = text[at];
    inside = inside != (text[at] == '"');
    outside += inside ? 0U : 1U;
  }
  return outside;
}

}  // namespace marigold::bench
