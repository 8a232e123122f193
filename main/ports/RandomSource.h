#pragma once

namespace marigold {

class RandomSource {
 public:
  RandomSource() = default;
  RandomSource(const RandomSource&) = delete;
  RandomSource& operator=(const RandomSource&) = delete;
  RandomSource(RandomSource&&) = delete;
  RandomSource& operator=(RandomSource&&) = delete;
  virtual ~RandomSource() = default;

  /// A uniform fraction in the closed range 0 to 1, with 53 random bits.
  [[nodiscard]] virtual double fraction() = 0;
};

}  // namespace marigold
