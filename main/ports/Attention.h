#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "base/Pinned.h"

namespace marigold {

/// Moments at which the user is likely to look, or time has moved by itself.
enum class AttentionEvent : std::uint8_t { wake, screenWake, spaceChange, clockChange };

/// A registration with `Attention`. Destroying it ends the calls.
class AttentionObserver : public Pinned {};

/// The desktop's notifications of such moments.
class Attention : public Pinned {
 public:
  /// Calls `callback` on the main loop's thread at each `event` while the result lives. Null when
  /// this desktop cannot tell.
  [[nodiscard]] virtual std::unique_ptr<AttentionObserver> observe(
      AttentionEvent event, std::function<void()> callback) = 0;
};

}  // namespace marigold
