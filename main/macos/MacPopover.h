#pragma once

#include <memory>

#include "macos/MacStatusBar.h"
#include "ports/Popover.h"

namespace marigold {

/// The popover at the status item's button.
class MacPopover final : public Popover {
 public:
  /// `bar` must outlive it.
  explicit MacPopover(const MacStatusBar& bar);
  MacPopover(const MacPopover&) = delete;
  MacPopover& operator=(const MacPopover&) = delete;
  ~MacPopover() override;

  void setContent(const PopoverContent& content) override;
  void open() override;
  void close() override;
  [[nodiscard]] bool isShown() const override;

 private:
  class Window;

  const std::unique_ptr<Window> window_;
};

}  // namespace marigold
