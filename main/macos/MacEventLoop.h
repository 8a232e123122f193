#pragma once

#include <memory>
#include <optional>

#include "base/QueuedEventLoop.h"

namespace marigold {

/// The main loop on the Mac: the main thread's run loop, in every mode in which it turns, so that
/// work goes on while a menu is open. To be made on that thread.
class MacEventLoop final : public QueuedEventLoop {
 public:
  MacEventLoop();
  MacEventLoop(const MacEventLoop&) = delete;
  MacEventLoop& operator=(const MacEventLoop&) = delete;
  ~MacEventLoop() override;

  [[nodiscard]] Instant now() const override;
  [[nodiscard]] Date date() const override;

 protected:
  void wake() override;
  void wakeAt(std::optional<Instant> when) override;

 private:
  struct RunLoop;

  const std::unique_ptr<RunLoop> runLoop_;
};

}  // namespace marigold
