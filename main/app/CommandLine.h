#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/StatusReport.h"
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
    open,    ///< the popover of the instance that runs, or of this process, which then becomes it
    quit,    ///< ends the instance that runs
    status,  ///< what the mark shows
    help,
    version,
    application,
  };
  Mode mode = Mode::application;
  std::string_view flag;  ///< the flag that chose the mode; empty for the application
  std::string path;       ///< where a screenshot goes
  MarigoldTheme::Scheme scheme = MarigoldTheme::Scheme::light;  ///< of the popover in it
  StatusForm form = StatusForm::lines;                          ///< of the status
  bool follows = false;  ///< it is printed again at each change

  bool operator==(const Command&) const = default;
};

/// The first flag, in the order of the table, that equals some argument. A flag that takes a path
/// matches only when an argument follows it; after the path, "dark" or "light" chooses the scheme.
/// The flags of the status mean it with or without "--status". Other arguments are ignored.
[[nodiscard]] Command parseCommandLine(std::span<const std::string> arguments);

/// One thing of the command line or of what surrounds it, and what it does.
struct HelpEntry {
  std::string_view name;
  std::string_view argument;  ///< what must follow it; empty when nothing does
  std::string_view text;
};

/// All that is told of the program's use: what --help, the manual and the completions are made of.
/// Paragraphs have no line ends.
struct CommandHelp {
  std::string_view purpose;      ///< a sentence
  std::string_view description;  ///< of the application itself
  std::vector<HelpEntry> flags;
  std::string_view afterFlags;  ///< what holds for several of them
  std::vector<HelpEntry> environment;
  std::vector<HelpEntry> files;  ///< of the user's; not in --help
  std::vector<HelpEntry> statuses;
};
[[nodiscard]] CommandHelp commandHelp();

/// What --help prints.
[[nodiscard]] std::string helpText();
/// What --version prints.
[[nodiscard]] std::string versionText();

}  // namespace marigold
