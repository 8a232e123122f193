#pragma once

#include "ports/ApplicationControl.h"

namespace marigold {

/// The application as a Linux desktop sees it: a set of windows, each of which asks for the
/// keyboard itself when it opens, without a menu of its own.
class LinuxApplicationControl final : public ApplicationControl {
 public:
  void quit() override;
  void leaveRegardless(Seconds after) override;
};

}  // namespace marigold
