#pragma once

#include <string>
#include <string_view>

#import <os/log.h>

#include "ports/Log.h"

namespace marigold {

/// The system's log, under the application's identifier. Its lines are public: none holds a secret.
class MacLog final : public Log {
 public:
  explicit MacLog(const std::string& bundleIdentifier);

  void note(std::string_view line) override;
  void error(std::string_view line) override;

 private:
  const os_log_t log_;
};

}  // namespace marigold
