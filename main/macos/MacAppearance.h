#pragma once

#include "macos/MacObservation.h"
#include "ports/Appearance.h"

namespace marigold {

/// The user's appearance and display options. Of the bar only its item knows how dark it is.
class MacAppearance final : public Appearance {
 public:
  MacAppearance();

  [[nodiscard]] AppearanceSettings settings() const override;

 private:
  void changed() const {
    if (onChange) {
      onChange();
    }
  }

  const MacObservation options_;
  const MacObservation windows_;
};

}  // namespace marigold
