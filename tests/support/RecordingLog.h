#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ports/Log.h"

namespace marigold::test {

/// Keeps what is written to it.
class RecordingLog final : public Log {
 public:
  std::vector<std::string> lines;
  void note(std::string_view line) override { lines.emplace_back(line); }
  void error(std::string_view line) override { lines.emplace_back(line); }
};

}  // namespace marigold::test
