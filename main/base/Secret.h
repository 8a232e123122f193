#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

namespace marigold {

/// A text that must not leave the process: it is never copied, and its memory is overwritten when
/// it goes. It has no textual form; only what builds a request looks at it. It lies on pages of its
/// own, which the system, where it can, leaves out of core dumps, those included that it hands to
/// a program, and never writes to swap.
class Secret {
 public:
  Secret() noexcept = default;
  /// Copies `text`, which the caller wipes with `wipe` when it held the secret too.
  explicit Secret(std::string_view text);
  /// An empty one that can grow to `capacity` bytes.
  [[nodiscard]] static Secret withRoom(std::size_t capacity);
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  Secret(Secret&& other) noexcept;
  Secret& operator=(Secret&& other) noexcept;
  ~Secret() = default;

  [[nodiscard]] bool isEmpty() const noexcept { return size_ == 0; }
  /// In bytes.
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  /// The text itself. Valid while this object lives and is not assigned to.
  [[nodiscard]] std::string_view expose() const noexcept { return {bytes_.get(), size_}; }

  /// The free bytes behind the text, where more of it can be put.
  [[nodiscard]] std::span<char> room() const noexcept;
  /// Takes the first `count` bytes of the room into the text.
  void grow(std::size_t count) noexcept { size_ += count; }

 private:
  struct Release {
    std::size_t capacity;
    void operator()(char* bytes) const noexcept;
  };

  std::unique_ptr<char, Release> bytes_;
  std::size_t size_ = 0;
};

/// Overwrites memory that held a secret, in a way that is not optimised away.
void wipe(char* bytes, std::size_t size) noexcept;

}  // namespace marigold
