#pragma once

#include <memory>

#include "base/EventLoop.h"
#include "linux/system/ScreenPlaces.h"
#include "ports/Popover.h"

namespace marigold {

/// The popover as a small window without a frame, one card below the other, all text in native
/// labels.
///
/// It closes at the press of a button outside, or as it loses the focus by that; the click that
/// follows when the button is released, if it is one on the status item, was meant to close it.
/// `open` therefore does nothing until shortly after that release.
class PopoverWindow final : public Popover {
 public:
  /// Opens at `item`. Both must outlive it.
  PopoverWindow(EventLoop& loop, const ItemPlace& item);
  PopoverWindow(const PopoverWindow&) = delete;
  PopoverWindow& operator=(const PopoverWindow&) = delete;
  ~PopoverWindow() override;

  void setContent(const PopoverContent& content) override;
  void open() override;
  void close() override;
  [[nodiscard]] bool isShown() const override;

 private:
  class Window;

  std::unique_ptr<Window> window_;
};

}  // namespace marigold
