#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/MenuItem.h"

class QImage;

namespace marigold {

/// Marigold's item in the bars that speak the StatusNotifierItem protocol, its menu exported with
/// it. It has a private connection to the session bus and offers itself to the bus's watcher, and
/// to every later one, until it is destroyed; a bus that is not there simply has no watcher.
///
/// Needs a running Qt application; lives on the main loop's thread. Callbacks, but those that give
/// menu items, run from the event loop by themselves and may destroy the item.
class StatusNotifierItem final {
 public:
  /// Not connected yet. A development build is another item to hosts, which remember an item's
  /// place by its name.
  explicit StatusNotifierItem(bool developmentBuild);
  StatusNotifierItem(const StatusNotifierItem&) = delete;
  StatusNotifierItem& operator=(const StatusNotifierItem&) = delete;
  ~StatusNotifierItem();

  /// Connects to the bus at this address, leaving the one before; nothing else is waited for.
  void connectTo(const std::string& busAddress);

  /// Whether a watcher has taken the item and a host is there to show it.
  [[nodiscard]] bool available() const;
  /// Whether there is a watcher that has not said yet whether it shows the item.
  [[nodiscard]] bool isAsking() const;
  /// Whether the watcher is Waybar, which shows a wide icon wide.
  [[nodiscard]] bool hostIsWaybar() const;
  /// Called when either may have changed. Telling is asynchronous, so a new item is unavailable at
  /// first.
  std::function<void()> onAvailabilityChange;

  /// A click with the left button; where, as the host tells it, which may be relative to anything.
  std::function<void(int x, int y)> onActivate;
  /// A click with the right button at a host that does not show the exported menu.
  std::function<void(int x, int y)> onContextMenu;
  /// Asked for the menu's current items when a host reads the menu, which is no sign of anybody's
  /// attention, and when it is about to open it, which not every host tells.
  std::function<std::vector<MenuItem>(bool opening)> onMenuRead;

  // Hosts are told of changes once a turn of the event loop.

  /// The icon in several sizes, none to show none; the host chooses. To be set again when
  /// `available` becomes true, since hosts take pixels differently.
  void setPixmaps(const std::vector<QImage>& images);
  /// The one line that every host with tooltips shows, some of them big; and all lines, separated
  /// by line feeds.
  void setToolTip(const std::string& title, const std::string& lines);
  /// Text beside the icon, for hosts that draw it.
  void setLabel(const std::string& label);
  void setAccessibleDescription(const std::string& description);

  /// The newest token that a host gave for raising a window, once; empty when there is none.
  [[nodiscard]] std::string takeActivationToken();

 private:
  class Exported;
  std::unique_ptr<Exported> exported_;
};

}  // namespace marigold
