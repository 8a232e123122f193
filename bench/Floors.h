#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

// What the machine needs at least: each floor does the unavoidable work of one subject and nothing
// else. Budgets are multiples of these, measured in the same run.

namespace marigold::bench {

/// Reads the tree below `root` and the status of every regular file in it; gives their number.
std::size_t bareWalk(const std::string& root);

/// One read that fills `into` from the end of a file, and one search backwards for `mark`, which
/// holds a "_" and ends before the file does; true when it is there.
bool bareTailRead(int descriptor, std::span<char> into, std::string_view mark);

/// One read that fills `into` from the end of a file, and one search forwards for each of
/// `needles`; the number of those that are there.
std::size_t bareSearch(int descriptor, std::span<char> into,
                       std::span<const std::string_view> needles);

/// One look at every byte of `text`, copying it to `into` and telling what lies between quotes from
/// the rest; gives the length of the rest.
std::size_t bareScan(std::string_view text, std::span<char> into);

}  // namespace marigold::bench
