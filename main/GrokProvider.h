#pragma once

#include <string>

#include "Surroundings.h"

namespace marigold {

/// Where the Grok command-line tool keeps its log.
class GrokPaths {
 public:
  explicit GrokPaths(const Surroundings& surroundings);

  /// `GROK_HOME` when set and not empty, else "~/.grok".
  [[nodiscard]] const std::string& home() const noexcept { return home_; }
  [[nodiscard]] std::string logsDir() const { return home_ + "/logs"; }
  /// The one file that is read.
  [[nodiscard]] std::string unifiedLog() const { return logsDir() + "/unified.jsonl"; }

 private:
  std::string home_;
};

}  // namespace marigold
