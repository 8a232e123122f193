#include "ClaudePacing.h"

#include <cmath>

namespace marigold {

std::optional<ClaudeCadenceSample> claudeCadenceSample(
    const std::optional<ProviderSnapshot>& snapshot) {
  if (!snapshot || snapshot->health.kind() != Health::Kind::ok) {
    return std::nullopt;
  }
  const UsageWindow* leading = snapshot->window("5h");
  if (leading == nullptr) {
    leading = snapshot->headlineWindow();
  }
  if (leading == nullptr || !std::isfinite(leading->percent)) {
    return std::nullopt;
  }
  return ClaudeCadenceSample{.percent = leading->percent, .capturedAt = snapshot->capturedAt};
}

void ClaudeCadenceTracker::observe(const std::optional<ClaudeCadenceSample>& sample) {
  if (!sample) {
    previous.reset();
    latest.reset();
  } else if (!latest) {
    latest = sample;
  } else if (sample->capturedAt > latest->capturedAt) {
    previous = latest;
    latest = sample;
  }
}

double ClaudeCadenceTracker::interval(Date now) const {
  if (!previous || !latest || latest->percent <= previous->percent) {
    return backgroundMinInterval;
  }
  const double age = secondsBetween(latest->capturedAt, now);
  return age >= 0 && age <= claudeMovementEvidenceTTL ? activeMinInterval : backgroundMinInterval;
}

bool claudeReadsThisCycle(bool turnedOff) noexcept {
  return !turnedOff;
}

bool claudePublishesThisResult(bool sampledRead, bool readsNow) noexcept {
  return sampledRead == readsNow;
}

ProviderSnapshot turnedOffClaudeSnapshot(Date at) {
  return {.provider = ProviderID::claude, .capturedAt = at, .health = Health::turnedOff()};
}

}  // namespace marigold
