#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "base/MenuItem.h"

class QDBusConnection;

namespace marigold {

/// A menu exported as com.canonical.dbusmenu, for hosts that draw a status item's menu themselves.
/// Lives on the main loop's thread.
class DBusMenu final {
 public:
  /// The menu's current items, asked for whenever a host reads the menu from its root; `opening` is
  /// true when the host is about to open it, which not every host tells. Must not destroy the menu.
  using Items = std::function<std::vector<MenuItem>(bool opening)>;

  /// Where the menu is exported.
  static constexpr const char* path = "/MenuBar";

  /// Exports the menu on `connection` until it is destroyed. An item's action runs from the event
  /// loop by itself, so it may destroy the menu.
  DBusMenu(QDBusConnection connection, Items items);
  DBusMenu(const DBusMenu&) = delete;
  DBusMenu& operator=(const DBusMenu&) = delete;
  ~DBusMenu();

  /// Tells hosts that have read the menu what has changed in it since; for some never tell that
  /// they open it.
  void refresh();

 private:
  class Exported;
  std::unique_ptr<Exported> exported_;
};

}  // namespace marigold
