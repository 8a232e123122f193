#pragma once

#include <cstdint>
#include <string>

#include "base/OwnedDescriptor.h"
#include "base/Surroundings.h"
#include "linux/system/LinuxSurroundings.h"

namespace marigold {

/// Where the programs of one user find each other: a directory for the user alone, in the session's
/// runtime directory or, without one, with the user's data. In it lie a lock, which the one
/// instance holds until its process ends in whatever way, and the socket at which it is reached;
/// one that somebody left behind is replaced.
class InstanceSeat {
 public:
  enum class Taken : std::uint8_t {
    here,         ///< this process has the seat
    elsewhere,    ///< another one has it
    unavailable,  ///< there is no place for one
  };

  InstanceSeat(const Environment& environment, const Surroundings& surroundings);
  InstanceSeat(const InstanceSeat&) = delete;
  InstanceSeat& operator=(const InstanceSeat&) = delete;
  ~InstanceSeat();

  /// Tries to take the seat.
  [[nodiscard]] Taken take();
  /// The socket that listens once the seat is taken, else -1; not blocking.
  [[nodiscard]] int listener() const noexcept { return listener_.get(); }
  /// A connection, not blocking, to who has the seat; not open when nobody listens. The other end
  /// is a process of the same user.
  [[nodiscard]] OwnedDescriptor connect() const;
  /// The directory, in which something changes whenever the seat was taken; made if need be.
  [[nodiscard]] OwnedDescriptor directory() const { return open(true); }

 private:
  [[nodiscard]] OwnedDescriptor open(bool make) const;
  [[nodiscard]] bool listen(const OwnedDescriptor& directory);

  std::string path_;
  OwnedDescriptor lock_{-1};
  OwnedDescriptor directory_{-1};  // of the lock
  OwnedDescriptor listener_{-1};
};

}  // namespace marigold
