#pragma once

#include "base/Pinned.h"
#include "base/Time.h"

namespace marigold {

/// The application as the desktop sees it.
class ApplicationControl : public Pinned {
 public:
  /// Installs the application's main menu, where the desktop has such a thing.
  virtual void installMainMenu() {}
  /// Brings the application to the front, so that a window it opens gets the keyboard.
  virtual void activate() {}
  /// Ends the event loop; the application then shuts down in order.
  virtual void quit() = 0;
  /// Has the process leave after so long, whatever still blocks it then. Does not wait.
  virtual void leaveRegardless(Seconds after) = 0;
};

}  // namespace marigold
