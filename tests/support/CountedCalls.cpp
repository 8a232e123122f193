#include "CountedCalls.h"

#include <sys/stat.h>
#include <sys/types.h>

using marigold::test::interfere, marigold::test::made;

#ifdef __clang__
#pragma clang diagnostic ignored "-Wreserved-identifier"
#endif

// NOLINTBEGIN(*-reserved-identifier, *-global-variables, cert-dcl50-cpp, *-identifier-naming)
namespace marigold::test {

std::map<std::string_view, std::size_t> made;
std::function<void(const std::string&)> interfere = [](auto&) {};

}  // namespace marigold::test

extern "C" {  // the names are the linker's
int __real_open(const char* path, int flags, ...);
int __real_openat(int directory, const char* path, int flags, ...);
int __real_fstatat(int directory, const char* path, struct stat* status, int flags);
ssize_t __real_pread(int descriptor, void* into, size_t size, off_t offset);

int __wrap_open(const char* path, int flags, ...) {
  return __real_open(path, flags, 0600);  // the mode is of a new file: the cache
}
int __wrap_openat(int directory, const char* path, int flags, ...) {
  ++made[std::string_view(path).ends_with(".jsonl") ? "open" : "openat"];
  interfere(path);
  return __real_openat(directory, path, flags);
}
int __wrap_fstatat(int directory, const char* path, struct stat* status, int flags) {
  ++made["fstatat"];
  interfere(path);
  return __real_fstatat(directory, path, status, flags);
}
ssize_t __wrap_pread(int descriptor, void* into, size_t size, off_t offset) {
  ++made["pread"];
  made["bytes"] += size;
  return __real_pread(descriptor, into, size, offset);
}
}
// NOLINTEND(*-reserved-identifier, *-global-variables, cert-dcl50-cpp, *-identifier-naming)
