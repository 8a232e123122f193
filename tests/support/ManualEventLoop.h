#pragma once

#include "base/QueuedEventLoop.h"

namespace marigold::test {

/// An event loop in virtual time: nothing runs unless asked, time moves only when told. Serves as
/// the main loop and as every worker.
class ManualEventLoop final : public QueuedEventLoop {
 public:
  [[nodiscard]] Instant now() const override { return now_; }
  [[nodiscard]] Date date() const override { return date_; }
  void setDate(Date date) { date_ = date; }

  /// Runs one piece of ready work; false when none is ready.
  bool step() {
    promoteDueTimers();
    return runOne();
  }
  /// Runs until nothing is ready.
  void settle() {
    while (step()) {
    }
  }
  /// Moves time on by `length`, running everything that falls due at its time.
  void advance(Seconds length) {
    const Instant end = now_ + continuousDuration(length);
    settle();
    for (auto due = nextDeadline(); due && *due <= end; due = nextDeadline()) {
      moveTo(*due);
      settle();
    }
    moveTo(end);
  }
  /// Moves time on without running anything, as when the machine sleeps.
  void sleep(Seconds length) { moveTo(now_ + continuousDuration(length)); }
  [[nodiscard]] std::optional<Instant> nextTimer() { return nextDeadline(); }
  using QueuedEventLoop::timerEntries;

 protected:
  void wake() override {}
  void wakeAt(std::optional<Instant> /*when*/) override {}

 private:
  void moveTo(Instant when) {
    if (when > now_) {
      date_ += when - now_;
      now_ = when;
    }
  }

  Instant now_{std::chrono::hours(1)};
  Date date_{Seconds{1'781'270'000}};  // 2026-06-12, a Friday
};

}  // namespace marigold::test
