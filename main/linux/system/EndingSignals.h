#pragma once

#include "base/OwnedDescriptor.h"
#include "base/Pinned.h"
#include "linux/system/LinuxEventLoop.h"

namespace marigold {

/// The signals that ask a process to end (SIGINT, SIGTERM, SIGHUP), as an event of the main loop.
class EndingSignals final : public Pinned {
 public:
  /// Keeps them waiting until they are watched. To be called before any thread starts, so that
  /// every thread inherits it.
  static void block();

  /// Calls `onSignal` for each, while this lives. `loop` must outlive this.
  EndingSignals(LinuxEventLoop& loop, Work onSignal);
  EndingSignals(const EndingSignals&) = delete;
  EndingSignals& operator=(const EndingSignals&) = delete;
  ~EndingSignals() override;

 private:
  LinuxEventLoop& loop_;
  OwnedDescriptor signals_;
};

}  // namespace marigold
