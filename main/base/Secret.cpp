#include "base/Secret.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include <sys/mman.h>

namespace marigold {

namespace {

// Only Linux can leave single pages out of a core dump.
#ifdef MADV_DONTDUMP
constexpr int outOfCoreDumps = MADV_DONTDUMP;
#else
constexpr int outOfCoreDumps = MADV_NORMAL;
#endif

}  // namespace

void wipe(char* bytes, std::size_t size) noexcept {
  // Called through a pointer that the compiler must read, so that it cannot know there is no need.
  static void* (*const volatile fill)(void*, int, std::size_t) = std::memset;
  if (size > 0) {
    fill(bytes, 0, size);
  }
}

Secret::Secret(std::string_view text) : Secret(withRoom(text.size())) {
  std::ranges::copy(text, room().begin());
  grow(text.size());
}

Secret Secret::withRoom(std::size_t capacity) {
  Secret secret;
  if (capacity > 0) {
    void* const pages =
        ::mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) {
      throw std::bad_alloc();
    }
    (void)::madvise(pages, capacity, outOfCoreDumps);
    (void)::mlock(pages, capacity);  // as far as the user's limit goes
    secret.bytes_ = {static_cast<char*>(pages), Release{.capacity = capacity}};
  }
  return secret;
}

Secret::Secret(Secret&& other) noexcept
    : bytes_(std::move(other.bytes_)), size_(std::exchange(other.size_, 0)) {}

Secret& Secret::operator=(Secret&& other) noexcept {
  bytes_ = std::move(other.bytes_);
  size_ = std::exchange(other.size_, 0);
  return *this;
}

std::span<char> Secret::room() const noexcept {
  if (!bytes_) {
    return {};
  }
  return std::span(bytes_.get(), bytes_.get_deleter().capacity).subspan(size_);
}

void Secret::Release::operator()(char* bytes) const noexcept {
  wipe(bytes, capacity);
  (void)::munmap(bytes, capacity);
}

}  // namespace marigold
