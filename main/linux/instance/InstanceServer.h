#pragma once

#include <map>
#include <string>
#include <string_view>

#include "base/OwnedDescriptor.h"
#include "linux/system/LinuxEventLoop.h"
#include "ports/InstanceDoor.h"

namespace marigold {

/// Asks for news again and again instead of for one answer: this, and the raw value of a form.
inline constexpr std::string_view followRequest = "follow ";

/// The door at a listening socket. Who comes in sends one line and reads the answer until the end
/// of the stream; that of "quit" is the end of the process. A follower who does not read what it is
/// told is sent away, and may come again. Nothing wakes this while nobody comes.
class InstanceServer final : public InstanceDoor {
 public:
  /// `loop` and `listener`, -1 for none, must outlive this.
  InstanceServer(LinuxEventLoop& loop, int listener);
  InstanceServer(const InstanceServer&) = delete;
  InstanceServer& operator=(const InstanceServer&) = delete;
  ~InstanceServer() override;

  void tellFollowers() override;

 private:
  struct Caller {
    OwnedDescriptor socket;
    std::string heard;  // of the request, until it is whole
    bool isAnswered = false;
    bool waitsForEnd = false;
    News news;  // of a follower
  };

  void accept();
  void hear(int key);
  void answer(Caller& caller, std::string_view request);
  void leave(int key);

  LinuxEventLoop& loop_;
  int listener_;
  std::map<int, Caller> callers_;  // by descriptor
  Timer again_;
};

}  // namespace marigold
