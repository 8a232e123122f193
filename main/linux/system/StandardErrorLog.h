#pragma once

#include "ports/Log.h"

namespace marigold {

/// One line each to standard error, which journald keeps for a program started by the session.
class StandardErrorLog final : public Log {
 public:
  void note(std::string_view line) override;
  void error(std::string_view line) override;
};

}  // namespace marigold
