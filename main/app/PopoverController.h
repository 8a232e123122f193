#pragma once

#include <array>
#include <functional>
#include <string>

#include "UsageStore.h"
#include "base/EventLoop.h"
#include "popover/DesktopTexts.h"
#include "ports/Appearance.h"
#include "ports/ApplicationControl.h"
#include "ports/LocalTimeText.h"
#include "ports/Popover.h"
#include "ports/PopoverContent.h"

namespace marigold {

/// How a desktop's popover and settings differ from another's.
struct PopoverTraits {
  DesktopTexts texts = macTexts;
  bool offersBarColors = false;  ///< the desktop may not know whether its bar is dark
  /// Where each provider's data is sought, in words or as a path, by `ProviderID`.
  std::array<std::string, allCases<ProviderID>.size()> looksIn{};
};

/// Keeps the popover's content up to date while it is open, and does what its controls ask for.
/// Nothing is computed while it is closed. Lives on the main loop's thread.
class PopoverController {
 public:
  /// The references must outlive the controller.
  struct Services {
    UsageStore& store;
    EventLoop& loop;
    Popover& popover;
    Appearance& appearance;
    ApplicationControl& application;
    const LocalTimeText& localTime;
    PopoverTraits traits;
  };

  explicit PopoverController(Services services);
  PopoverController(const PopoverController&) = delete;
  PopoverController& operator=(const PopoverController&) = delete;
  ~PopoverController();

  /// Called after the popover opened or closed.
  std::function<void()> onShownChanged;

  [[nodiscard]] bool isShown() const { return s_.popover.isShown(); }
  /// Opens it, at the cards.
  void open();
  void close() { s_.popover.close(); }
  /// Takes over what changed, if it is open.
  void refresh();
  /// No callback comes from the popover any more.
  void stop();

 private:
  void update();
  void closed();
  // Follows the refresh that the user asked for: under way, then done for a moment.
  void followRefresh();
  [[nodiscard]] PopoverContent content();
  [[nodiscard]] std::vector<ProviderCard> cards(MarigoldTheme::Scheme scheme);
  [[nodiscard]] SettingsForm settings(MarigoldTheme::Scheme scheme);
  void show(PopoverContent::Page page);

  Services s_;
  PopoverContent content_;  // as the popover has it
  PopoverContent::Page page_ = PopoverContent::Page::cards;
  PopoverContent::Refresh refresh_ = PopoverContent::Refresh::idle;
  Timer doneMark_;
};

}  // namespace marigold
