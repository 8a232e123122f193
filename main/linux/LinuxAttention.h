#pragma once

#include <memory>

#include "LinuxEventLoop.h"
#include "ports/Attention.h"

namespace marigold {

/// Attention on Linux: waking from logind, screen waking from the session's screen saver, both over
/// D-Bus, and clock changes from the kernel. A bus that is not there simply tells nothing. Needs a
/// running Qt application; lives on the main loop's thread.
class LinuxAttention final : public Attention {
 public:
  explicit LinuxAttention(LinuxEventLoop& loop);
  LinuxAttention(const LinuxAttention&) = delete;
  LinuxAttention& operator=(const LinuxAttention&) = delete;
  LinuxAttention(LinuxAttention&&) = delete;
  LinuxAttention& operator=(LinuxAttention&&) = delete;
  ~LinuxAttention() override;

  [[nodiscard]] std::unique_ptr<AttentionObserver> observe(AttentionEvent event,
                                                           std::function<void()> callback) override;

 private:
  class Signals;
  class Registration;

  LinuxEventLoop& loop_;
  OwnedDescriptor clock_;  // becomes readable when the wall clock is set
  std::shared_ptr<Signals> receiver_;
};

}  // namespace marigold
