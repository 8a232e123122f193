#pragma once

#include "base/Pinned.h"

namespace marigold {

/// Launching at login. This base stands in for a desktop that offers none.
class LoginItem : public Pinned {
 public:
  /// Reads the system's current state again.
  virtual void refreshStatus() {}
  /// Registers again when launching at login is on, so that a moved program stays registered.
  virtual void reregisterIfEnabled() {}
};

}  // namespace marigold
