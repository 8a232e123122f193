#pragma once

#include "ports/ApplicationControl.h"

namespace marigold {

/// The shared application.
class MacApplicationControl final : public ApplicationControl {
 public:
  void installMainMenu() override;
  void activate() override;
  void showAbout(const AboutPanel& about) override;
  /// The application's delegate then ends what it made; the process leaves after that.
  void quit() override;
  void leaveRegardless(Seconds after) override;
};

}  // namespace marigold
