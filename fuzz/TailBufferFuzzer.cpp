// The search for the last record goes backwards and decodes little; it agrees with taking every
// line in turn. Input: whether the bytes start in the middle of a file, the longest line, the
// bytes.

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzzed.h"
#include "codex/RolloutSearch.h"

namespace marigold::fuzz {

namespace {

std::optional<std::size_t> lastRecordLineByLine(std::string_view bytes, bool startsMidFile,
                                                std::size_t maxLine) {
  const char* const start = bytes.data();
  std::vector<std::string_view> lines;
  while (!bytes.empty()) {
    const std::string_view line = bytes.substr(0, bytes.find('\n'));
    if (!line.empty()) {
      lines.push_back(line);
    }
    bytes.remove_prefix(std::min(bytes.size(), line.size() + 1));
  }
  std::optional<std::size_t> last;
  for (std::size_t i = startsMidFile ? 1 : 0; i < lines.size(); ++i) {
    if (lines[i].size() > maxLine || lines[i].find("rate_limits") == std::string_view::npos) {
      continue;
    }
    const auto decoded = CodexRolloutLine::decode(lines[i]);
    if (decoded && decoded->payload && decoded->payload->rateLimits &&
        decoded->payload->rateLimits->carriesWindow()) {
      last = static_cast<std::size_t>(lines[i].data() - start);
    }
  }
  return last;
}

}  // namespace

void examine(std::string_view input) {
  if (input.size() < 2) {
    return;
  }
  const bool startsMidFile = byteAt(input, 0) % 2 == 1;
  const std::size_t maxLine = byteAt(input, 1) * 16;
  const std::string_view bytes = input.substr(2);
  const auto found = lastRecordIn(bytes, startsMidFile, Date{}, maxLine);
  const auto expected = lastRecordLineByLine(bytes, startsMidFile, maxLine);
  require(found.has_value() == expected.has_value());
  require(!found || found->offset == static_cast<std::int64_t>(expected.value_or(0)));
}

}  // namespace marigold::fuzz
