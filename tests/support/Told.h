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

}  // namespace marigold::test
