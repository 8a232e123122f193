#include "MarigoldApp.h"

#include <cstdlib>
#include <ostream>

#include "CodexDump.h"
#include "SelfTest.h"

namespace marigold {

std::optional<int> runOneShotMode(const Command& command, const Surroundings& surroundings,
                                  Date now, std::ostream& out, std::ostream& err) {
  switch (command.mode) {
    case Command::Mode::application:
    case Command::Mode::shotMenuBar:  // takes the desktop's painter
      return std::nullopt;
    case Command::Mode::selfTest: {
      out << "Marigold self-test:\n";
      const bool passed = runSelfTest(out);
      out << "SELFTEST" << (passed ? " PASS" : " FAIL") << '\n';
      return passed ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    case Command::Mode::dumpCodex:
      out << codexDump(surroundings, now);
      return EXIT_SUCCESS;
    case Command::Mode::help:
      out << helpText();
      return EXIT_SUCCESS;
    case Command::Mode::version:
      out << versionText();
      return EXIT_SUCCESS;
    case Command::Mode::shot:
    case Command::Mode::shotSettings:
    case Command::Mode::shotOff:
    case Command::Mode::shotReconnect:
    case Command::Mode::shotHeld:
      err << "marigold: " << command.flag << ": this version cannot draw the popover yet\n";
      return EXIT_FAILURE;
  }
  return EXIT_FAILURE;
}

}  // namespace marigold
