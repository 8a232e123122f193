#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/Time.h"
#include "linux/system/LinuxSurroundings.h"
#include "linux/system/Probe.h"
#include "ports/Log.h"

namespace marigold {

/// The platforms to start Qt with, as a list for its argument "-platform", or nothing when no
/// display is usable: Qt ends the process when it cannot open one.
///
/// Looks through the user's choice, QT_QPA_PLATFORM of `environment`, or else Wayland and then X11
/// as Qt does, and gives the list from the first one on that a copy of this process can open (see
/// `Trial`). What comes after it is not asked, since that could start an X server nobody needs. A
/// Wayland or X11 display is only one that is named in `environment`, the whole of this process's:
/// there is no guessing at "wayland-0". A platform that is named but not usable is a line in `log`.
/// `meanwhile` is called once, while a platform is being tried if any is.
[[nodiscard]] std::optional<std::string> usablePlatforms(
    const Environment& environment, Log& log, const std::function<void()>& meanwhile = [] {},
    Seconds patience = answerPatience);

}  // namespace marigold
