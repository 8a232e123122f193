#pragma once

#include <memory>

#include "ports/UpdaterController.h"

namespace marigold {

/// Software updates by the Sparkle framework, loaded by name where the application's bundle carries
/// it; elsewhere the base, which offers none.
[[nodiscard]] std::unique_ptr<UpdaterController> sparkleUpdater();

}  // namespace marigold
