#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "base/Time.h"
#include "linux/system/LinuxSurroundings.h"

// What might end this process or block it for ever is tried in another one.

namespace marigold {

/// The program that runs, also when its file was replaced since.
inline constexpr const char* ownProgram = "/proc/self/exe";

/// How long a display or a bus may take to answer. A session that is just starting is slow, and who
/// has none waits no longer than it takes to find that out.
inline constexpr Seconds answerPatience{5};

enum class Probe : std::uint8_t {
  platform,  ///< opens one of the toolkit's platforms, which ends the process where it cannot
  bus,       ///< connects to the message bus at an address
};
enum class ProbeAnswer : std::uint8_t { works, fails, silent };

/// Has `program`, which calls `answerProbe`, try `what` with `name` within `patience`, in a process
/// that has this environment and nothing else of this one. `stop` ends it at once when it becomes
/// true.
[[nodiscard]] ProbeAnswer probe(const std::string& program, Probe what, const std::string& name,
                                const Environment& environment, Seconds patience,
                                const std::atomic<bool>* stop = nullptr);

/// When `arguments`, without the program's name, are those of a process that `probe` started: tries
/// what they say and leaves the process, with status 0 when it works. Else does nothing.
void answerProbe(std::span<const std::string> arguments);

}  // namespace marigold
