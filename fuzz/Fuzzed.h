#pragma once

#include <cstddef>
#include <string_view>

#include "model/ProviderSnapshot.h"

// What every target is made of: it defines `examine`, which Fuzzed.cpp calls with each input.
// Behind an input's end lies nothing that may be read.

namespace marigold::fuzz {

void examine(std::string_view input);

/// Ends the run, which keeps the input, when something that always holds does not.
void require(bool holds);
/// What can be shown can be shown again after a restart.
void requireCached(const ProviderSnapshot& snapshot);

/// A byte of the input as a number, for budgets and switches.
inline std::size_t byteAt(std::string_view input, std::size_t at) {
  return static_cast<unsigned char>(input[at]);
}

}  // namespace marigold::fuzz
