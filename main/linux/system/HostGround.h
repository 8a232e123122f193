#pragma once

#include <functional>
#include <memory>

#include "base/Pinned.h"
#include "ports/Appearance.h"

class QDBusConnection;

namespace marigold {

/// Whether the bar that shows status items is dark, as far as its program decides that by itself,
/// whatever colours applications have. Told by the program that is the bus's StatusNotifierItem
/// watcher: GNOME's bar is black, Waybar's and swaybar's dark until told otherwise, XFCE's panel
/// has a setting and Plasma's a style. Nothing waits for an answer. Works with any Qt application.
class HostGround final : public Pinned {
 public:
  /// `onChange` is called when `ground` may have changed.
  HostGround(const QDBusConnection& bus, std::function<void()> onChange);
  HostGround(const HostGround&) = delete;
  HostGround& operator=(const HostGround&) = delete;
  ~HostGround() override;

  [[nodiscard]] DarkMenuBar ground() const;

 private:
  class Watch;

  std::unique_ptr<Watch> watch_;
};

}  // namespace marigold
