// Loaded into a program under test before the system's library, to have happen what a test cannot
// cause: a file whose opening never ends, and a wall clock that is set, by SIGUSR1, ten minutes on.
// Only where that file hangs does an alarm ring, however slow the machine is.

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <string_view>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

// What the replaced calls and the signal share.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<int> clockDescriptor = -1;
std::atomic<int> secondsAhead = 0;
std::atomic<bool> hangs = false;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

void setClock(int /*signal*/) {
  secondsAhead = 600;
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto ignored = ::write(clockDescriptor, &one, sizeof one);
}

}  // namespace

extern "C" {

// The kernel is asked itself: to look up the library's own would take memory, for which a sanitizer
// looks at the clock.

int openat(int fd, const char* file, int oflag, ...) {
  while (std::string_view(file).ends_with("hangs/.credentials.json")) {
    hangs = true;
    constexpr std::string_view says = "hangs\n";
    [[maybe_unused]] const auto ignored = ::write(STDERR_FILENO, says.data(), says.size());
    ::pause();
  }
  // NOLINTBEGIN(cppcoreguidelines-pro-bounds-array-to-pointer-decay): so the language has it
  va_list rest;
  va_start(rest, oflag);
  const int mode = va_arg(rest, int);
  va_end(rest);
  // NOLINTEND(cppcoreguidelines-pro-bounds-array-to-pointer-decay)
  return static_cast<int>(::syscall(SYS_openat, fd, file, oflag, mode));
}

// Instead of a timer that the system cancels at a change of the clock, one that the signal does.
int timerfd_create(clockid_t clock, int flags) noexcept {
  if (clock != CLOCK_REALTIME) {
    return static_cast<int>(::syscall(SYS_timerfd_create, clock, flags));
  }
  (void)std::signal(SIGUSR1, setClock);
  return clockDescriptor = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

// By its symbol: the library's own declaration names a parameter as only it may.
int setAlarm(int which, const itimerval* value, itimerval* old) noexcept __asm__("setitimer");
int setAlarm(int which, const itimerval* value, itimerval* old) noexcept {
  return hangs ? static_cast<int>(::syscall(SYS_setitimer, which, value, old)) : 0;
}

ssize_t read(int fd, void* buf, size_t nbytes) {
  const ssize_t count = ::syscall(SYS_read, fd, buf, nbytes);
  if (fd == clockDescriptor && count > 0) {
    errno = ECANCELED;
    return -1;
  }
  return count;
}

int clock_gettime(clockid_t clock_id, timespec* tp) noexcept {
  const int result = static_cast<int>(::syscall(SYS_clock_gettime, clock_id, tp));
  tp->tv_sec += clock_id == CLOCK_REALTIME ? secondsAhead.load() : 0;
  return result;
}

}  // extern "C"
