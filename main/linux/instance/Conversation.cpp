#include "linux/instance/Conversation.h"

#include <array>
#include <cerrno>
#include <cstddef>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace marigold {

bool say(const OwnedDescriptor& socket, std::string_view request) {
  const std::string line = std::string(request) + "\n";
  return ::send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(line.size());
}

Ending listen(const OwnedDescriptor& socket, Milliseconds patience, bool forOutput,
              const std::function<bool(std::string_view)>& hear) {
  std::array<pollfd, 2> watched{
      pollfd{.fd = socket.get(), .events = POLLIN, .revents = 0},
      pollfd{.fd = forOutput ? STDOUT_FILENO : -1, .events = 0, .revents = 0}};
  std::array<char, 4096> bytes{};
  for (;;) {
    if (::poll(watched.data(), watched.size(), patience.count()) == 0) {
      return Ending::silence;
    }
    if (watched[1].revents != 0) {
      return Ending::ours;
    }
    const ssize_t count = ::recv(socket.get(), bytes.data(), bytes.size(), 0);
    if (count > 0 && !hear({bytes.data(), static_cast<std::size_t>(count)})) {
      return Ending::ours;
    }
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
      return Ending::theirs;
    }
  }
}

std::expected<std::string, Ending> ask(const OwnedDescriptor& socket, std::string_view request,
                                       Milliseconds patience) {
  if (!socket.isOpen() || !say(socket, request)) {
    return std::unexpected(Ending::theirs);
  }
  std::string answer;
  const Ending ending = listen(socket, patience, false, [&](std::string_view more) {
    answer += more;
    return true;
  });
  if (ending != Ending::theirs || !answer.ends_with('\n')) {
    return std::unexpected(ending);
  }
  return answer;
}

}  // namespace marigold
