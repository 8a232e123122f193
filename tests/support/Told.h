#pragma once

#include <filesystem>
#include <sstream>

#include "model/ProviderSnapshot.h"

namespace marigold::test {

/// `seconds` after a moment that the tests count from.
constexpr Date at(double seconds) {
  return Date{Seconds{1.8e9 + seconds}};
}

inline void setModified(const std::string& path, Date date) {
  const auto exact = std::chrono::round<std::chrono::nanoseconds>(date);
  std::filesystem::last_write_time(path, std::chrono::file_clock::from_sys(exact));
}

/// "Weekly 15 @10, ok": the windows, when the reading was taken and its health.
inline std::string told(const ProviderSnapshot& reading) {
  std::ostringstream text;
  for (const UsageWindow& window : reading.windows) {
    text << window.label << ' ' << window.percent << ' ';
  }
  text << '@' << secondsBetween(at(0), reading.capturedAt) << ", "
       << (reading.health == Health::ok() ? "ok" : reading.health.reason());
  return text.str();
}

/// "Weekly 15 until 1800000100, Grok X, a note": the windows with their resets, the plan and the
/// note.
inline std::string toldInFull(const ProviderSnapshot& reading) {
  std::ostringstream text;
  text.precision(12);
  const auto next = [&]() -> std::ostream& { return text << (text.tellp() > 0 ? ", " : ""); };
  for (const auto& [label, percent, resetsAt] : reading.windows) {
    next() << label << ' ' << percent;
    resetsAt ? text << " until " << resetsAt->time_since_epoch().count() : text;
  }
  reading.planLabel ? next() << *reading.planLabel : text;
  reading.extraNote ? next() << *reading.extraNote : text;
  return text.str();
}

}  // namespace marigold::test
