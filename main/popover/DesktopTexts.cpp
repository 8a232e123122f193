#include "popover/DesktopTexts.h"

#include "claude/ClaudeTexts.h"

namespace marigold {

std::string_view macTexts(std::string_view text) {
  return text;
}

std::string_view linuxTexts(std::string_view text) {
  return claudeTextOnLinux(text).value_or(text);
}

}  // namespace marigold
