#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Pinned.h"
#include "Secret.h"
#include "Surroundings.h"
#include "Time.h"

namespace marigold {

/// The outcome of one bounded run of a child process.
struct SecretCommandResult {
  /// The exit status; 128 and the signal's number for a child that a signal ended, as shells count.
  /// Of a child that could not be ended, or that somebody else waited for, -1.
  std::int32_t status = 0;
  Secret stdoutBytes;               ///< what it wrote to standard output, up to the cap
  std::size_t stderrByteCount = 0;  ///< how much it wrote to standard error
  bool timedOut = false;            ///< it was ended at its deadline, or because all is to stop
  bool overflowed = false;          ///< it wrote more than the cap to standard output
  bool launchFailed = false;        ///< it was never started

  /// For diagnostics; tells nothing of the output but its size.
  [[nodiscard]] std::string description() const;
};

/// Runs child processes that are not trusted to end, or to say little.
struct BoundedProcessRun {
  /// How often a waiting run looks whether the child has ended or all is to stop.
  static constexpr Seconds exitPollInterval{0.01};

  struct Command {
    std::string executable;              ///< an absolute path
    std::vector<std::string> arguments;  ///< without the program's name
    std::map<std::string, std::string> environment;
    std::size_t stdoutCap = 0;  ///< bytes that are kept; one more ends the run
    std::size_t stderrCap = 0;  ///< bytes; more than that are read and dropped as well
    Seconds timeout{};
    /// Written to the child's standard input, which otherwise is the null device, and wiped.
    std::optional<Secret> input;
    /// How long a child has to end once it is asked to, and its streams once it has ended.
    Seconds grace{1.0};
    /// Once true, ends the run at once: the child is killed and nothing more is waited for.
    const std::atomic<bool>* stop = nullptr;
  };

  /// Blocks for at most the timeout and three times the grace. The child gets nothing of this
  /// process but its three standard streams: no descriptor, no environment, no signal setting.
  /// The process must ignore SIGPIPE, which an input that the child does not read would raise.
  [[nodiscard]] static SecretCommandResult execute(Command command);
};

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
