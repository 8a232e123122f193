#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace marigold {

/// A text that must not leave the process: it is never copied, and its memory is overwritten when
/// it goes. It has no textual form; only what builds a request looks at it.
class Secret {
 public:
  Secret() noexcept = default;
  /// Copies `text`, which the caller wipes with `wipe` when it held the secret too.
  explicit Secret(std::string_view text);
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  Secret(Secret&& other) noexcept;
  Secret& operator=(Secret&& other) noexcept;
  ~Secret();

  [[nodiscard]] bool isEmpty() const noexcept { return size_ == 0; }
  /// In bytes.
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  /// The text itself. Valid while this object lives and is not assigned to.
  [[nodiscard]] std::string_view expose() const noexcept { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<char[]> bytes_;  // NOLINT(modernize-avoid-c-arrays)
  std::size_t size_ = 0;
};

/// Overwrites memory that held a secret, in a way that is not optimised away.
void wipe(char* bytes, std::size_t size) noexcept;

}  // namespace marigold
