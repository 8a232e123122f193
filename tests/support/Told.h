#pragma once

#include <sstream>
#include <string>

#include "TestTime.h"
#include "model/ProviderSnapshot.h"

namespace marigold::test {

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
