#pragma once

#include <QtCore/QCoreApplication>

#include "ports/ApplicationControl.h"

namespace marigold {

/// The application as the Qt event loop runs it. A Linux application has no main menu of its own,
/// and its windows bring themselves to the front.
class LinuxApplicationControl final : public ApplicationControl {
 public:
  void installMainMenu() override {}
  void activate() override {}
  void quit() override { QCoreApplication::quit(); }
};

}  // namespace marigold
