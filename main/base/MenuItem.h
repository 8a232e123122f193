#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace marigold {

/// One entry of a menu, shown by the desktop's own menus.
struct MenuItem {
  enum class Kind : std::uint8_t { action, checkbox, radio, submenu, separator };
  Kind kind = Kind::action;
  std::string title;
  std::string tooltip;
  bool checked = false;
  bool enabled = true;
  int indent = 0;  ///< levels by which the title is moved in
  std::function<void()> action;
  std::vector<MenuItem> items;  ///< of a submenu

  [[nodiscard]] static MenuItem separator() { return {.kind = Kind::separator}; }
};

}  // namespace marigold
