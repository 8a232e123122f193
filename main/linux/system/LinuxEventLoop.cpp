#include "linux/system/LinuxEventLoop.h"

#include <array>
#include <cerrno>
#include <ctime>
#include <utility>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace marigold {

namespace {

// How long what other threads post may gather. Several workers that answer at about the same time
// then wake the loop once.
constexpr long gathering = 2'000'000;  // nanoseconds

// Takes the count out of an eventfd or timerfd, so that it is no longer readable.
void drain(int descriptor) {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t ignored = ::read(descriptor, &count, sizeof count);
}

}  // namespace

LinuxEventLoop::LinuxEventLoop()
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      wakeups_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      soon_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      timer_(::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK)) {
  watch(wakeups_.get(), [this] {
    drain(wakeups_.get());
    awake_ = false;  // before the queue is looked at: what is posted from here on wakes again
  });
  watch(soon_.get(), [this] {
    drain(soon_.get());
    awakeSoon_ = false;
  });
  watch(timer_.get(), [this] {
    drain(timer_.get());
    armed_.reset();
  });
}

LinuxEventLoop::~LinuxEventLoop() {
  close();
}

Instant LinuxEventLoop::now() const {
  timespec time = {};
  (void)::clock_gettime(CLOCK_BOOTTIME, &time);
  return Instant(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

Date LinuxEventLoop::date() const {
  return std::chrono::system_clock::now();
}

void LinuxEventLoop::run() {
  running_ = true;
  while (running_) {
    turn(-1);
  }
}

void LinuxEventLoop::quit() {
  running_ = false;
  wake();
}

void LinuxEventLoop::watch(int descriptor, Work onReadable) {
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event);
  watched_[descriptor] = std::make_shared<Work>(std::move(onReadable));
}

void LinuxEventLoop::unwatch(int descriptor) {
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
  watched_.erase(descriptor);
}

void LinuxEventLoop::wake() {
  if (std::this_thread::get_id() != thread_) {
    if (!awakeSoon_.exchange(true)) {
      const itimerspec setting{.it_interval = {}, .it_value = {.tv_sec = 0, .tv_nsec = gathering}};
      (void)::timerfd_settime(soon_.get(), 0, &setting, nullptr);
    }
  } else if (!awake_.exchange(true)) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(wakeups_.get(), &one, sizeof one);
  }
}

void LinuxEventLoop::wakeAt(std::optional<Instant> when) {
  if (when == armed_) {
    return;
  }
  armed_ = when;
  itimerspec setting = {};  // all zero disarms
  if (when) {
    // A time at or before the start of the clock would disarm too.
    const auto since = std::max(when->time_since_epoch(), ContinuousClock::duration(1));
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec = (since - seconds).count();
  }
  (void)::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

void LinuxEventLoop::turn(int timeoutMilliseconds) {
  std::array<epoll_event, 16> events{};
  const int count = ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()),
                                 timeoutMilliseconds);
  for (int i = 0; i < count; ++i) {
    // Looked up each time: an earlier callback may have ended this watch.
    const auto found = watched_.find(events.at(static_cast<std::size_t>(i)).data.fd);
    if (found != watched_.end()) {
      const auto work = found->second;
      (*work)();
    }
  }
  runReady();
}

}  // namespace marigold
