#pragma once

#include <memory>

#include "linux/system/BusLink.h"
#include "linux/system/CurrentDesktop.h"
#include "linux/system/LinuxEventLoop.h"
#include "ports/Attention.h"

namespace marigold {

/// Attention on Linux: waking from logind, screen waking from the session's screen saver, both over
/// D-Bus, clock changes from the kernel, and on X11 another virtual desktop as a change of space. A
/// bus that is not there simply tells nothing. Lives on the main loop's thread and no longer than
/// the Qt application and what it is given.
class LinuxAttention final : public Attention {
 public:
  LinuxAttention(LinuxEventLoop& loop, BusLink& sessionBus, BusLink& systemBus);
  LinuxAttention(const LinuxAttention&) = delete;
  LinuxAttention& operator=(const LinuxAttention&) = delete;
  ~LinuxAttention() override;

  [[nodiscard]] std::unique_ptr<AttentionObserver> observe(AttentionEvent event,
                                                           std::function<void()> callback) override;

 private:
  class Signals;
  class Registration;

  LinuxEventLoop& loop_;
  OwnedDescriptor clock_;  // becomes readable when the wall clock is set
  std::shared_ptr<Signals> receiver_;
  BusLink::Following session_;
  BusLink::Following system_;
  std::unique_ptr<CurrentDesktop> desktop_;  // null where nothing tells of spaces
};

}  // namespace marigold
