#include "Secret.h"

#include <algorithm>
#include <utility>

namespace marigold {

void wipe(char* bytes, std::size_t size) noexcept {
  volatile char* target = bytes;
  for (std::size_t i = 0; i < size; ++i) {
    target[i] = 0;
  }
}

Secret::Secret(std::string_view text)
    : bytes_(std::make_unique<char[]>(text.size())),  // NOLINT(modernize-avoid-c-arrays)
      size_(text.size()) {
  std::ranges::copy(text, bytes_.get());
}

Secret::Secret(Secret&& other) noexcept
    : bytes_(std::move(other.bytes_)), size_(std::exchange(other.size_, 0)) {}

Secret& Secret::operator=(Secret&& other) noexcept {
  if (this != &other) {
    wipe(bytes_.get(), size_);
    bytes_ = std::move(other.bytes_);
    size_ = std::exchange(other.size_, 0);
  }
  return *this;
}

Secret::~Secret() {
  wipe(bytes_.get(), size_);
}

}  // namespace marigold
