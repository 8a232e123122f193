#pragma once

#include <cmath>
#include <random>
#include <vector>

namespace marigold::test {

/// Everything that is left to chance, from one seed.
class Luck {
 public:
  explicit Luck(unsigned seed) : engine(seed) {}

  /// 0 to 1, not quite.
  double fraction() { return static_cast<double>(engine() % 10'000) / 10'000; }
  bool chance(double likely) { return fraction() < likely; }
  int below(int limit) { return static_cast<int>(engine() % static_cast<unsigned>(limit)); }
  /// A time between two events, in seconds.
  double gap(double mean) { return -mean * std::log(1 - fraction()); }
  template <class List>
  auto& of(List& list) {
    return *std::next(list.begin(), below(static_cast<int>(list.size())));
  }

  std::mt19937 engine;
};

}  // namespace marigold::test
