#include "store/Publication.h"

#include <utility>

namespace marigold {

Answer Publication::arrive(std::uint64_t ask, ProviderSnapshot snapshot, bool takesBack) {
  return {
      .ask = ask, .arrival = ++arrivals_, .snapshot = std::move(snapshot), .takesBack = takesBack};
}

bool Publication::offer(Answer answer, Date now) {
  if (answer.ask <= floor_ || answer.arrival < accepted_ ||
      (order_ == Order::byCapture && !answer.takesBack && mustKeep(answer.snapshot, now))) {
    return false;
  }
  accepted_ = answer.arrival;
  isCleared_ = false;
  snapshot_ = std::move(answer.snapshot);
  return true;
}

void Publication::clear() {
  snapshot_.reset();
  isCleared_ = true;
}

// A published reading from the future was captured under a wrong clock and keeps nothing out.
bool Publication::mustKeep(const ProviderSnapshot& fresh, Date now) const {
  return snapshot_ && snapshot_->isUsable() && fresh.isUsable() &&
         fresh.capturedAt < snapshot_->capturedAt && snapshot_->capturedAt <= now &&
         !snapshot_->allReset(now);
}

}  // namespace marigold
