#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "ports/PopoverContent.h"

namespace marigold {

/// What the command line asks for: a one-shot mode, or the application itself.
struct Command {
  enum class Mode : std::uint8_t {
    selfTest,
    dumpCodex,
    shot,
    shotSettings,
    shotOff,
    shotReconnect,
    shotHeld,
    shotMenuBar,
    help,
    version,
    application,
  };
  Mode mode = Mode::application;
  std::string_view flag;  ///< the flag that chose the mode; empty for the application
  std::string path;       ///< where a screenshot goes
  MarigoldTheme::Scheme scheme = MarigoldTheme::Scheme::light;  ///< of the popover in it

  bool operator==(const Command&) const = default;
};

/// The first flag, in the order of the table, that equals some argument. A flag that takes a path
/// matches only when an argument follows it; after the path, "dark" or "light" chooses the scheme.
/// Other arguments are ignored.
[[nodiscard]] Command parseCommandLine(std::span<const std::string> arguments);

/// What --help prints.
[[nodiscard]] std::string_view helpText() noexcept;
/// What --version prints.
[[nodiscard]] std::string versionText();

}  // namespace marigold
