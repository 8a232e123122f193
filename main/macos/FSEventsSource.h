#pragma once

#include <memory>
#include <string>

#include "ports/EventStream.h"

namespace marigold {

/// The system's file-system events. The paths that are told have no links in them, wherever the
/// watched one leads.
class FSEventsSource final : public EventStreamSource {
 public:
  /// `queueLabel` names the serial queue of each stream.
  explicit FSEventsSource(std::string queueLabel) : queueLabel_(std::move(queueLabel)) {}

  /// The stream must not be destroyed from its own callback.
  [[nodiscard]] std::unique_ptr<EventStream> open(const std::string& path, Seconds latency,
                                                  Callback callback) override;

 private:
  std::string queueLabel_;
};

}  // namespace marigold
