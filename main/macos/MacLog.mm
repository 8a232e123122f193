#include "macos/MacLog.h"

namespace marigold {

MacLog::MacLog(const std::string& bundleIdentifier)
    : log_(os_log_create(bundleIdentifier.c_str(), "lifecycle")) {}

void MacLog::note(std::string_view line) {
  const std::string text(line);
  os_log(log_, "%{public}s", text.c_str());
}

void MacLog::error(std::string_view line) {
  const std::string text(line);
  os_log_error(log_, "%{public}s", text.c_str());
}

}  // namespace marigold
