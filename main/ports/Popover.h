#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "Drawing.h"
#include "Pinned.h"
#include "PopoverView.h"

namespace marigold {

/// The window with the providers' cards that opens at the status item. The desktop closes it on
/// Escape, on losing the focus and on a click outside, for which it watches while it is open. Lives
/// on the main loop's thread. This base stands in where there are no windows.
class Popover : public Pinned {
 public:
  /// Called after the popover closed, whoever closed it.
  std::function<void()> onClosed;

  /// What is shown, also while it is open.
  virtual void setCards(const std::vector<ProviderCard>& /*cards*/) {}
  /// Opens it and gives it the keyboard, near `at` where that is plausible.
  virtual void open(std::optional<Point> /*at*/) {}
  virtual void close() {}
  [[nodiscard]] virtual bool isShown() const { return false; }
};

}  // namespace marigold
