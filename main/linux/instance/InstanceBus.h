#pragma once

#include <memory>

#include "linux/system/BusLink.h"
#include "ports/InstanceDoor.h"

namespace marigold {

/// The instance on the session bus, for other programs: the bundle identifier as its name, an
/// object with Open(), Quit() and Status(), which gives the JSON of `--status --json`. The name is
/// asked for again whenever the bus comes back. Should another instance, whose runtime directory is
/// another one, have it at the start, that one is told to open its popover.
class InstanceBus final {
 public:
  /// `onElsewhere` is called when that other instance has done so. The references must outlive
  /// this.
  InstanceBus(BusLink& bus, InstanceDoor& door, Work onElsewhere);
  InstanceBus(const InstanceBus&) = delete;
  InstanceBus& operator=(const InstanceBus&) = delete;
  ~InstanceBus();

 private:
  class Exported;

  std::unique_ptr<Exported> exported_;
  BusLink::Following following_;
};

}  // namespace marigold
