#pragma once

#include <string_view>

#include "base/Pinned.h"

namespace marigold {

/// The system's log, where messages about the application's own life go. Never given a secret.
class Log : public Pinned {
 public:
  /// One line at default level. Callable from any thread.
  virtual void note(std::string_view line) = 0;
  /// One line at error level. Callable from any thread.
  virtual void error(std::string_view line) = 0;
};

}  // namespace marigold
