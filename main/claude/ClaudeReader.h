#pragma once

#include <functional>

#include "base/Pinned.h"
#include "model/ProviderSnapshot.h"

namespace marigold {

/// What the usage store asks of the reader of Claude's usage. Lives on the main loop; answers come
/// later on the same loop, exactly once each, and never fail: a failure is a snapshot's health.
class ClaudeReader : public Pinned {
 public:
  using Answer = std::function<void(ProviderSnapshot)>;

  /// Told what work found that its questions were not kept waiting for.
  Answer onLateResult;

  /// A reading, from memory while less than `minInterval` has passed since the last request.
  virtual void poll(Seconds minInterval, Instant now, Answer answer) = 0;
  /// Clears the latch, the read's retry and every back-off but the server's, and reads at once.
  virtual void retryNow(Answer answer) = 0;
  /// A failed read stands that only `retryNow` clears.
  [[nodiscard]] virtual bool isReadLatched() const = 0;
  /// Claude is being turned off: no question that waits leads to another read or request. It is
  /// answered with what the work that is out finds.
  virtual void stopAsking() = 0;
  /// Forgets the remembered reading and removes its cache file.
  virtual void forgetCache() = 0;
};

}  // namespace marigold
