#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ports/EventStream.h"

namespace marigold {

/// The file events of the next delivery, one for each path.
class FileEventDelivery {
 public:
  /// `root` is what the paths of all events begin with.
  explicit FileEventDelivery(std::string root) : root_(std::move(root)) {}

  /// `relative` is below the root and begins with '/'; empty for the root itself.
  void add(const std::string& relative, std::uint32_t flags) {
    if (merged_) {
      return;
    }
    if (const auto [at, isNew] = places_.try_emplace(relative, events_.size()); !isNew) {
      events_[at->second].flags |= flags;
      return;
    }
    events_.push_back({.path = root_ + relative, .flags = flags});
    if (events_.size() > maxEvents) {
      replace(eventFlag::mustScanSubDirs);
      merged_ = true;
    }
  }
  /// One event for the root, which says all.
  void replace(std::uint32_t rootFlags) {
    (void)take();
    add("", rootFlags);
  }
  /// All events so far, of which none is kept.
  [[nodiscard]] std::vector<FileEvent> take() {
    places_.clear();
    merged_ = false;
    return std::exchange(events_, {});
  }

 private:
  // Before they are merged into one for the root.
  static constexpr std::size_t maxEvents = 4096;

  std::string root_;
  std::vector<FileEvent> events_;
  std::unordered_map<std::string, std::size_t> places_;
  bool merged_ = false;
};

}  // namespace marigold
