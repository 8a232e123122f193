#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/Secret.h"
#include "base/Time.h"

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
    std::string executable;              ///< an absolute path; nothing else is started
    std::string name;                    ///< the child's own; empty for the executable
    std::vector<std::string> arguments;  ///< without the name
    std::map<std::string, std::string> environment;
    std::size_t stdoutCap = 0;  ///< bytes that are kept; one more ends the run
    std::size_t stderrCap = 0;  ///< bytes; more than that are read and dropped as well
    Seconds timeout{};
    /// Written to the child's standard input, which otherwise is the null device, and wiped.
    std::optional<Secret> input;
    /// A descriptor above the standard ones that the child gets as well, as its fourth; -1 for
    /// none.
    int handedDown = -1;
    /// How long a child has to end once it is asked to, and its streams once it has ended.
    Seconds grace{1.0};
    /// Once true, ends the run at once: the child is killed and nothing more is waited for.
    const std::atomic<bool>* stop = nullptr;
  };

  /// Blocks for at most the timeout and three times the grace. The child gets nothing of this
  /// process but what the command says: no descriptor, no environment, no signal setting.
  /// The process must ignore SIGPIPE, which an input that the child does not read would raise. It
  /// stops ignoring SIGCHLD, which would lose what a child ended with.
  [[nodiscard]] static SecretCommandResult execute(Command command);
};

}  // namespace marigold
