#include "base/ProcessEnd.h"

#include <csignal>
#include <cstdint>
#include <cstdlib>

#include <sys/time.h>
#include <unistd.h>

namespace marigold {

void leaveAfter(Seconds delay) {
  (void)std::signal(SIGALRM, [](int) { ::_exit(EXIT_SUCCESS); });
  constexpr std::int64_t perSecond = 1'000'000;
  const auto microseconds = std::chrono::round<std::chrono::microseconds>(delay).count();
  itimerval then{};
  then.it_value.tv_sec = microseconds / perSecond;
  then.it_value.tv_usec = static_cast<decltype(then.it_value.tv_usec)>(microseconds % perSecond);
  (void)::setitimer(ITIMER_REAL, &then, nullptr);
}

}  // namespace marigold
