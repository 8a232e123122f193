#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Time.h"
#include "ports/Log.h"

namespace marigold {

/// What this process's environment says of displays. Unset and empty variables are the same.
struct DisplayEnvironment {
  std::string platforms;         ///< the user's own choice of Qt's platforms, QT_QPA_PLATFORM
  std::string waylandDisplay;    ///< WAYLAND_DISPLAY: a socket's path or its name in the next
  std::string runtimeDirectory;  ///< XDG_RUNTIME_DIR
  std::string x11Display;        ///< DISPLAY
  std::vector<std::string> pluginDirectories;  ///< where Qt looks for its platform plugins
};
[[nodiscard]] DisplayEnvironment displayEnvironment();

/// How long a display may take to answer. A session that is just starting is slow, and who has no
/// display waits no longer than it takes to find that out.
inline constexpr Seconds displayPatience{5};

/// The platforms to start Qt with, as a list for its argument "-platform", or nothing when no
/// display is usable: Qt ends the process when it cannot open one. To be asked before Qt and any
/// thread starts.
///
/// Looks through the user's choice, or Wayland and then X11 as Qt does, and gives the list from the
/// first one on that works: for Wayland when the compositor answers, for X11 when the server lets
/// us in, and for both when Qt's plugin is there. What comes after it is not asked, since that
/// could start an X server nobody needs. Any other platform of the user's counts as working. A
/// Wayland display is only one that is named: there is no guessing at "wayland-0". A display that
/// is named but not usable is a line in `log`.
[[nodiscard]] std::optional<std::string> usablePlatforms(const DisplayEnvironment& environment,
                                                         Log& log,
                                                         Seconds patience = displayPatience);

}  // namespace marigold
