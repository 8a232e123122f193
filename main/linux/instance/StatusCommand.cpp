#include "linux/instance/StatusCommand.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "app/InstanceAnswers.h"
#include "app/StoredStatus.h"
#include "linux/instance/Conversation.h"
#include "linux/instance/InstanceServer.h"
#include "linux/system/IcuLocalTimeText.h"
#include "linux/system/JsonDefaults.h"
#include "linux/system/StandardErrorLog.h"

namespace marigold {

namespace {

// An instance that takes longer is still trying display and bus, or is stuck.
constexpr Milliseconds patience{1'000};
// As often as an instance reads by itself.
constexpr Milliseconds readPause{180'000};
// Who was sent away by an instance that goes on comes again.
constexpr Milliseconds returnPause{1'000};

// Whether it could be written.
bool print(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd writable{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
      (void)::poll(&writable, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

StatusReport ownReport(const Surroundings& surroundings, const Environment& environment) {
  StandardErrorLog log;
  const JsonDefaults defaults(surroundings.preferencesFile(), log);
  const IcuLocalTimeText localTime(timeLocale(environment));
  return storedStatus(surroundings, defaults, linuxTexts, localTime,
                      std::chrono::system_clock::now());
}

// Waits for an instance to come; whether somebody still reads what is printed.
class Arrivals {
 public:
  explicit Arrivals(const InstanceSeat& seat) : events_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    const OwnedDescriptor directory = seat.directory();  // held, its end would not be told
    const std::string path = "/proc/self/fd/" + std::to_string(directory.get());
    (void)::inotify_add_watch(events_.get(), path.c_str(), IN_MOVED_TO);
  }

  bool wait(Milliseconds atMost) {
    std::array<pollfd, 2> watched{pollfd{.fd = events_.get(), .events = POLLIN, .revents = 0},
                                  pollfd{.fd = STDOUT_FILENO, .events = 0, .revents = 0}};
    (void)::poll(watched.data(), watched.size(), atMost.count());
    std::array<char, 4096> ignored{};
    while (::read(events_.get(), ignored.data(), ignored.size()) > 0) {
    }
    return watched[1].revents == 0;
  }

 private:
  OwnedDescriptor events_;
};

enum class Followed : std::uint8_t { nobody, instance, toTheEnd };

// Prints what the instance tells as long as it does.
Followed followInstance(StatusForm form, const InstanceSeat& seat) {
  const OwnedDescriptor socket = seat.connect();
  if (!socket.isOpen() || !say(socket, std::string(followRequest).append(rawValue(form)))) {
    return Followed::nobody;
  }
  Followed followed = Followed::nobody;
  std::string line;  // as far as it has come
  const Ending ending = listen(socket, forEver, true, [&](std::string_view news) {
    followed = Followed::instance;
    const std::size_t whole = line.append(news).rfind('\n') + 1;
    const bool printed = print(std::string_view(line).substr(0, whole));
    line.erase(0, whole);
    return printed;
  });
  return ending == Ending::ours ? Followed::toTheEnd : followed;
}

}  // namespace

int printStatus(StatusForm form, const InstanceSeat& seat, const Surroundings& surroundings,
                const Environment& environment) {
  const auto answer =
      ask(seat.connect(), std::string(instanceRequest::status).append(rawValue(form)), patience);
  const bool printed =
      print(answer ? *answer : statusText(ownReport(surroundings, environment), form));
  return printed || errno == EPIPE ? EXIT_SUCCESS : EXIT_FAILURE;
}

int followStatus(StatusForm form, const InstanceSeat& seat, const Surroundings& surroundings,
                 const Environment& environment) {
  StatusNews own(form);
  for (;;) {
    Arrivals arrivals(seat);  // from before the look for an instance on
    const Followed followed = followInstance(form, seat);
    if (followed == Followed::instance) {
      own = StatusNews(form);
    }
    if (followed == Followed::toTheEnd || !print(own.next(ownReport(surroundings, environment))) ||
        !arrivals.wait(followed == Followed::instance ? returnPause : readPause)) {
      return EXIT_SUCCESS;
    }
  }
}

}  // namespace marigold
