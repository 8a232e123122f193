#pragma once

#include "base/Pinned.h"

namespace marigold {

/// Software updates. This base stands in where the package manager does them.
class UpdaterController : public Pinned {
 public:
  [[nodiscard]] virtual bool canCheckForUpdates() const { return false; }
  virtual void checkForUpdates() {}
};

}  // namespace marigold
