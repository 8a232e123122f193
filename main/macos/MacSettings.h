#pragma once

#include "macos/MacViews.h"
#include "ports/PopoverContent.h"

namespace marigold {

/// How a row of the settings is shown.
struct RowState {
  int depth = 0;         ///< 1 for a detail
  bool isOpen = false;   ///< its details are shown
  bool isAsked = false;  ///< its question stands in its place

  bool operator==(const RowState&) const = default;
};
/// What may be done with it.
struct RowUse {
  std::function<void(int)> use;
  std::function<void()> turn;     ///< opens or closes its details
  std::function<void(bool)> ask;  ///< shows its question or takes it away
};

/// A row of the settings, `width` points wide and as tall as it must be.
[[nodiscard]] NSView* makeSettingsRow(const SettingsRow& row, const RowState& state,
                                      const PopoverColors& colors, double width, const RowUse& use);

}  // namespace marigold
