#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "base/Surroundings.h"

namespace marigold {

/// Something that must hold, and whether it does.
struct SelfCheck {
  std::string name;
  bool holds = false;
};
/// What else must hold on this desktop. Changes nothing of the user's.
using DesktopChecks = std::function<std::vector<SelfCheck>(const Surroundings&)>;

/// Checks, in this very build and on this machine, the rules that a wrong number would come from,
/// and that the system gives what the program needs. Writes a line per check to `out`; true when
/// all hold. Touches no file but one of its own in the temporary directory, and no network.
[[nodiscard]] bool runSelfTest(const Surroundings& surroundings, const DesktopChecks& ofDesktop,
                               std::ostream& out);

}  // namespace marigold
