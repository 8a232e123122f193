#pragma once

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/Time.h"

namespace marigold::test {

/// A token-count line written now, to the millisecond like the real tool's. Both windows reset
/// `resetsIn` seconds from now.
inline std::string tokenCount(double fiveHour, double weekly, double resetsIn = 4 * 86400.0) {
  const Date now = std::chrono::system_clock::now();
  const double seconds = now.time_since_epoch().count();
  std::string stamp = isoText(now);
  stamp.insert(stamp.size() - 1,
               std::to_string(seconds - std::floor(seconds)).substr(1, 4));  // ".123" before "Z"
  const auto reset = std::to_string(static_cast<long long>(seconds + resetsIn));
  return R"({"timestamp":")" + stamp +
         R"(","type":"event_msg","payload":{"type":"token_count","rate_limits":{"primary":{)" +
         R"("used_percent":)" + std::to_string(fiveHour) + R"(,"window_minutes":300,"resets_at":)" +
         reset + R"(},"secondary":{"used_percent":)" + std::to_string(weekly) +
         R"(,"window_minutes":10080,"resets_at":)" + reset + R"(},"plan_type":"plus"}}})" + "\n";
}

/// Adds `text` to a file, which is made with its directories if need be.
inline void append(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::app) << text;
}

}  // namespace marigold::test
