#pragma once

#include <functional>

#include "base/Pinned.h"
#include "ports/PopoverContent.h"

namespace marigold {

/// The window with the providers' cards and the settings that opens at the status item. The desktop
/// closes it on Escape (which leads back from the settings first), on losing the focus and on a
/// click outside, for which it watches while it is open. Lives on the main loop's thread. This base
/// stands in where there are no windows.
class Popover : public Pinned {
 public:
  /// Called after the popover closed, whoever closed it.
  std::function<void()> onClosed;

  /// What is shown, also while it is open.
  virtual void setContent(const PopoverContent& /*content*/) {}
  /// Opens it at the status item and gives it the keyboard.
  virtual void open() {}
  virtual void close() {}
  [[nodiscard]] virtual bool isShown() const { return false; }
};

}  // namespace marigold
