#pragma once

#include <atomic>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "base/BoundedProcessRun.h"
#include "base/Pinned.h"
#include "base/Surroundings.h"
#include "base/Time.h"

namespace marigold {

/// Runs the system's security tool, or what stands in for it.
class SecretCommandRunning : public Pinned {
 public:
  /// Blocks until the result is there.
  [[nodiscard]] virtual SecretCommandResult run(const std::vector<std::string>& arguments) = 0;
};

/// The system's security tool under hard limits.
class SecuritySecretRunner final : public SecretCommandRunning {
 public:
  static constexpr const char* executablePath = "/usr/bin/security";
  static constexpr std::size_t stdoutCap = 131072;
  static constexpr std::size_t stderrCap = 4096;

  /// `stop` ends a run at once when it becomes true; it outlives this.
  SecuritySecretRunner(const Surroundings& surroundings, const std::atomic<bool>& stop,
                       Seconds timeout = Seconds{4.0});

  [[nodiscard]] SecretCommandResult run(const std::vector<std::string>& arguments) override;

  /// All that the tool sees of the environment.
  [[nodiscard]] const std::map<std::string, std::string>& childEnvironment() const noexcept {
    return childEnvironment_;
  }

 private:
  std::map<std::string, std::string> childEnvironment_;
  const std::atomic<bool>& stop_;
  Seconds timeout_;
};

}  // namespace marigold
