#pragma once

#include <bit>
#include <stdexcept>

#include <arpa/inet.h>
#include <sys/socket.h>

#include "base/OwnedDescriptor.h"

namespace marigold::test {

/// A port of loopback that takes connections and where nobody ever says a word.
class SilentPort {
 public:
  SilentPort() {
    auto address = std::bit_cast<sockaddr>(
        sockaddr_in{.sin_family = AF_INET, .sin_addr = {.s_addr = htonl(INADDR_LOOPBACK)}});
    socklen_t size = sizeof address;
    if (::bind(listening_.get(), &address, size) != 0 || ::listen(listening_.get(), 20) != 0 ||
        ::getsockname(listening_.get(), &address, &size) != 0) {
      throw std::runtime_error("no port");
    }
    number_ = ntohs(std::bit_cast<sockaddr_in>(address).sin_port);
  }
  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] int descriptor() const { return listening_.get(); }

 private:
  OwnedDescriptor listening_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  int number_ = 0;
};

}  // namespace marigold::test
