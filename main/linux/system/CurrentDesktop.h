#pragma once

#include <functional>
#include <memory>

#include "base/Pinned.h"

namespace marigold {

/// Watches which virtual desktop of an X11 session is shown. Ends with its destruction, which must
/// come before the Qt application's.
///
/// It looks at the events of Qt's own connection: Qt asks for every property change of the root
/// window anyway and wakes for each, so that this costs no wake-up. A connection of our own would
/// wake once more whenever another window becomes active.
class CurrentDesktop : public Pinned {
 public:
  /// Calls `onChange` whenever another desktop is shown, while the result lives. Null when the Qt
  /// application does not run on X11: no other display tells.
  [[nodiscard]] static std::unique_ptr<CurrentDesktop> follow(std::function<void()> onChange);
};

}  // namespace marigold
