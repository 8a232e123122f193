#pragma once

#include <functional>
#include <memory>

#include "ports/Attention.h"

namespace marigold {

/// The system's notifications of waking, of another space and of another time or time zone. Lives
/// on the main thread.
class MacAttention final : public Attention {
 public:
  [[nodiscard]] std::unique_ptr<AttentionObserver> observe(AttentionEvent event,
                                                           std::function<void()> callback) override;
};

}  // namespace marigold
