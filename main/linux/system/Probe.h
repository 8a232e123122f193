#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include <sys/types.h>

#include "base/OwnedDescriptor.h"
#include "base/Time.h"
#include "linux/system/LinuxSurroundings.h"

// What might end this process or block it for ever is tried in another one.

namespace marigold {

/// The program that runs, also when its file was replaced since.
inline constexpr const char* ownProgram = "/proc/self/exe";

/// How long a display or a bus may take to answer. A session that is just starting is slow, and who
/// has none waits no longer than it takes to find that out.
inline constexpr Seconds answerPatience{5};

enum class ProbeAnswer : std::uint8_t { works, fails, silent };

/// Something tried at the process's start, in a copy of it that begins at once and says nothing.
/// Only while there is a single thread.
class Trial {
 public:
  /// `works` may end the copy or never return. It is gone when this is.
  explicit Trial(const std::function<bool()>& works);
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;
  ~Trial();

  /// Waits for it, for `patience` from now on at most, and ends it. To be asked once.
  [[nodiscard]] ProbeAnswer answer(Seconds patience);

 private:
  pid_t copy_ = -1;      // -1 when there is none
  OwnedDescriptor end_;  // of a pipe that only the copy keeps open
};

/// Whether the message bus at `address` takes connections. One that is silent is waited for.
[[nodiscard]] bool opensBus(const std::string& address);

/// Has `program`, which calls `answerBusProbe`, try `opensBus` within `patience`, in a process that
/// has nothing of this one, whatever threads there are. `stop` ends it when it becomes true.
[[nodiscard]] ProbeAnswer probeBus(const std::string& program, const std::string& address,
                                   Seconds patience, const std::atomic<bool>* stop = nullptr);

/// When `arguments`, without the program's name, are those of a process that `probeBus` started:
/// tries what they say and leaves the process, with status 0 when it works. Else does nothing.
void answerBusProbe(std::span<const std::string> arguments);

}  // namespace marigold
