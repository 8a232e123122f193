#include "app/CommandLine.h"

#include <algorithm>
#include <array>

namespace marigold {

namespace {

using Mode = Command::Mode;

struct Flag {
  std::string_view text;
  Mode mode;
  bool takesPath;
};

// In the order they are checked.
constexpr std::array flags{
    Flag{.text = "--selftest", .mode = Mode::selfTest, .takesPath = false},
    Flag{.text = "--dump-codex", .mode = Mode::dumpCodex, .takesPath = false},
    Flag{.text = "--shot", .mode = Mode::shot, .takesPath = true},
    Flag{.text = "--shot-settings", .mode = Mode::shotSettings, .takesPath = true},
    Flag{.text = "--shot-off", .mode = Mode::shotOff, .takesPath = true},
    Flag{.text = "--shot-reconnect", .mode = Mode::shotReconnect, .takesPath = true},
    Flag{.text = "--shot-held", .mode = Mode::shotHeld, .takesPath = true},
    Flag{.text = "--shot-menubar", .mode = Mode::shotMenuBar, .takesPath = true},
    Flag{.text = "--help", .mode = Mode::help, .takesPath = false},
    Flag{.text = "--version", .mode = Mode::version, .takesPath = false},
};

}  // namespace

Command parseCommandLine(std::span<const std::string> arguments) {
  for (const Flag& flag : flags) {
    const auto found = std::ranges::find(arguments, flag.text);
    if (found == arguments.end()) {
      continue;
    }
    if (!flag.takesPath) {
      return {.mode = flag.mode, .flag = flag.text};
    }
    if (const auto path = found + 1; path != arguments.end()) {
      const bool dark = path + 1 != arguments.end() && *(path + 1) == "dark";
      return {.mode = flag.mode,
              .flag = flag.text,
              .path = *path,
              .scheme = dark ? MarigoldTheme::Scheme::dark : MarigoldTheme::Scheme::light};
    }
  }
  return {};
}

std::string_view helpText() noexcept {
  return "Marigold shows how much of your allowance with Claude, Codex and Grok is spent.\n"
         "\n"
         "usage: marigold [FLAG]\n"
         "\n"
         "Without a flag it runs until it is told to quit. Without a display it prints, at each\n"
         "change of the mark, its tooltip, a line per window, and then its texts.\n"
         "\n"
         "  --selftest             check the program and what it needs; exit status 1 on failure\n"
         "  --dump-codex           explain the Codex reading: files considered, record chosen\n"
         "  --shot PATH            draw the popover to a PNG file\n"
         "  --shot-settings PATH   the same with its settings open\n"
         "  --shot-off PATH        the same with Claude turned off\n"
         "  --shot-reconnect PATH  the same with a Claude login that needs attention\n"
         "  --shot-held PATH       the same with that login held back\n"
         "  --shot-menubar PATH    draw the mark in all its looks to a PNG file\n"
         "  --help                 print this\n"
         "  --version              print the version\n"
         "\n"
         "After the path of a picture of the popover, dark or light chooses its colors.\n"
         "\n"
         "Environment: CODEX_HOME and GROK_HOME name the tools' directories (default ~/.codex\n"
         "and ~/.grok), MARIGOLD_CACHE_DIR the directory of the last readings.\n";
}

std::string versionText() {
  return std::string("Marigold ") + MARIGOLD_VERSION + "\n";
}

}  // namespace marigold
