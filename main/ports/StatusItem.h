#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Drawing.h"
#include "base/MenuItem.h"
#include "base/Pinned.h"
#include "ports/Appearance.h"

namespace marigold {

/// What the status item shows, in every form that some desktop's bar can show it.
struct StatusItemContent {
  Drawing mark;                    ///< the whole mark with its texts
  Drawing square;                  ///< the gauges alone, for bars that only take square icons
  std::string label;               ///< the texts of the mark, for bars that draw text themselves
  std::string tooltip;             ///< lines separated by line feeds
  std::string tooltipTitle;        ///< one line, for bars that give a tooltip a title
  std::string accessibilityLabel;  ///< name
  std::string accessibilityValue;  ///< spoken description
  /// The tooltip without the ages of readings, for a form that tells each change once: an age that
  /// moves on is none.
  std::string tooltipWithoutAges;
  /// The bar that the drawings are for; squares show on any.
  DarkMenuBar darkMenuBar = DarkMenuBar::unknown;

  bool operator==(const StatusItemContent&) const = default;
};

/// A click on the status item, told when the button is released.
struct StatusItemClick {
  enum class Button : std::uint8_t { left, right };
  Button button = Button::left;
  bool controlHeld = false;  ///< false also where the desktop does not tell modifiers
};

/// The item in the desktop's status bar. Lives on the main loop's thread.
class StatusItem : public Pinned {
 public:
  std::function<void(const StatusItemClick&)> onClick;
  /// Asked for the menu's current items when a desktop that shows the menu by itself reads it,
  /// maybe on any click, so that the popover is reached from there, too; `opening` when the user is
  /// about to see it.
  std::function<std::vector<MenuItem>(bool opening)> onMenuRead;
  /// Called after `ownGround` changed.
  std::function<void()> onGroundChange;

  /// The ground that the item paints below its mark where nothing else tells of the bar's; unknown
  /// while it is in a bar that is not its own.
  [[nodiscard]] virtual DarkMenuBar ownGround() const { return DarkMenuBar::unknown; }

  virtual void show(const StatusItemContent& content) = 0;
  /// Opens a menu at the item.
  virtual void openMenu(std::vector<MenuItem> items) = 0;
};

/// The desktop's status bar.
class StatusBar : public Pinned {
 public:
  /// A new item of variable width; null while the bar has no room for one.
  [[nodiscard]] virtual std::unique_ptr<StatusItem> makeItem() = 0;
};

}  // namespace marigold
