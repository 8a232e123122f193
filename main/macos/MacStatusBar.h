#pragma once

#include <memory>

#import <AppKit/AppKit.h>

#include "ports/StatusItem.h"

namespace marigold {

/// The system's menu bar.
class MacStatusBar final : public StatusBar {
 public:
  [[nodiscard]] std::unique_ptr<StatusItem> makeItem() override;

  /// The button of the item that was made last; nil without one.
  [[nodiscard]] NSStatusBarButton* button() const;

 private:
  struct Current {
    __weak NSStatusBarButton* button = nil;
  };
  const std::shared_ptr<Current> current_ = std::make_shared<Current>();
};

/// Whether `appearance` is one of the dark ones.
[[nodiscard]] bool isDark(NSAppearance* appearance);

}  // namespace marigold
