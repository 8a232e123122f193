#pragma once

#include <utility>

#include <unistd.h>

namespace marigold {

/// A file descriptor that is closed when this is destroyed. A failed call's -1 owns nothing.
class OwnedDescriptor {
 public:
  explicit OwnedDescriptor(int descriptor) : descriptor_(descriptor) {}
  OwnedDescriptor(OwnedDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  OwnedDescriptor(const OwnedDescriptor&) = delete;
  OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;
  ~OwnedDescriptor() { close(); }

  [[nodiscard]] int get() const noexcept { return descriptor_; }
  [[nodiscard]] bool isOpen() const noexcept { return descriptor_ >= 0; }
  /// Gives the descriptor to the caller.
  [[nodiscard]] int release() noexcept { return std::exchange(descriptor_, -1); }
  void close() noexcept {
    if (const int descriptor = std::exchange(descriptor_, -1); descriptor >= 0) {
      ::close(descriptor);
    }
  }

 private:
  int descriptor_;
};

}  // namespace marigold
