#pragma once

#include <filesystem>
#include <string>

#include "base/Time.h"

namespace marigold::test {

/// `seconds` after a moment that the tests count from.
constexpr Date at(double seconds) {
  return Date{Seconds{1.8e9 + seconds}};
}

inline void setModified(const std::string& path, Date date) {
  const auto exact = std::chrono::round<std::chrono::nanoseconds>(date);
  std::filesystem::last_write_time(path, std::chrono::file_clock::from_sys(exact));
}

}  // namespace marigold::test
