#include "linux/system/InotifyStream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <deque>
#include <filesystem>
#include <span>
#include <string_view>
#include <system_error>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "base/OwnedDescriptor.h"
#include "linux/system/FileEventDelivery.h"
#include "linux/system/WatchedTree.h"

namespace marigold {

namespace {

namespace fs = std::filesystem;

// A directory or link that the root's path leads through. Silent as long as it stays.
constexpr std::uint32_t guardMask = anyWatchMask | IN_MOVE_SELF | IN_DELETE_SELF;
// The directory in which the next part of a missing root's path will appear.
constexpr std::uint32_t entryMask = anyWatchMask | IN_ONLYDIR | IN_CREATE | IN_MOVED_TO;

// Links in the root's path before it counts as a circle, as in the kernel.
constexpr int maxLinks = 40;

class InotifyStream final : public EventStream {
 public:
  InotifyStream(Log& log, std::size_t watchLimit, Seconds retryAfter, std::string root,
                Seconds latency, EventStreamSource::Callback callback, OwnedDescriptor stop,
                OwnedDescriptor retry)
      : retryAfter_(continuousDuration(retryAfter)),
        root_(root),
        latency_(latency),
        callback_(std::move(callback)),
        stop_(std::move(stop)),
        retry_(std::move(retry)),
        delivery_(std::move(root)),
        tree_(delivery_, watchLimit, log, [this] { return wait(false, 0); }) {
    thread_ = std::thread([this] { run(); });
  }
  InotifyStream(const InotifyStream&) = delete;
  InotifyStream& operator=(const InotifyStream&) = delete;
  ~InotifyStream() override {
    eventfd_write(stop_.get(), 1);
    thread_.join();
  }

 private:
  enum class Root : std::uint8_t {
    absent,
    unwatched,  // there, but the system refuses a watch
    watched,
  };

  void run();
  bool wait(bool forEvents, int milliseconds);
  void drain();
  [[nodiscard]] bool isComplete() const { return !noEventWillTell_ && tree_.isComplete(); }
  void planRetry();
  void retry();
  std::uint32_t takeIn(const inotify_event& event, std::string_view name);
  void establishAgain(std::uint32_t reason);
  void establish();
  bool findRoot();
  bool awaitEntry(const fs::path& directory, const std::string& name);
  void guard(const fs::path& path);

  const ContinuousClock::duration retryAfter_;
  const fs::path root_;  // absolute
  const Seconds latency_;
  const EventStreamSource::Callback callback_;
  const OwnedDescriptor stop_;
  const OwnedDescriptor retry_;  // a timer, set while something is not watched that should be

  // Everything below belongs to the thread.
  FileEventDelivery delivery_;
  WatchedTree tree_;
  Root state_ = Root::absent;
  bool noEventWillTell_ = false;  // of a change of the state
  fs::path realRoot_;             // without links
  std::unordered_set<int> guards_;
  int awaitedIn_ = -1;  // the watch on the directory in which `awaited_` will appear
  std::string awaited_;

  std::thread thread_;
};

void InotifyStream::run() {
  const int pause =
      static_cast<int>(std::ceil(std::clamp(latency_.count(), 0.0, secondsPerHour) * 1000));
  establish();
  delivery_.add("", eventFlag::mustScanSubDirs);  // whatever happened since the stream was opened
  for (;;) {
    if (const auto events = delivery_.take(); !events.empty()) {
      callback_(events);
    }
    // Events gather in the kernel meanwhile, without waking anybody.
    planRetry();
    if (!wait(false, pause) || !wait(true, -1)) {
      return;
    }
    drain();
    if (std::uint64_t times = 0; ::read(retry_.get(), &times, sizeof times) > 0) {
      retry();
    }
  }
}

// Waits for the time to pass or, where wanted, for events. False when the stream is to end.
bool InotifyStream::wait(bool forEvents, int milliseconds) {
  std::array<pollfd, 3> descriptors{{{.fd = stop_.get(), .events = POLLIN},
                                     {.fd = forEvents ? tree_.queue() : -1, .events = POLLIN},
                                     {.fd = forEvents ? retry_.get() : -1, .events = POLLIN}}};
  (void)::poll(descriptors.data(), descriptors.size(), milliseconds);
  return descriptors[0].revents == 0;
}

void InotifyStream::drain() {
  std::array<char, 16384> buffer{};
  constexpr std::size_t largest = sizeof(inotify_event) + NAME_MAX + 1;
  // A read that leaves room for another event has emptied the queue.
  for (std::size_t count = buffer.size(); count + largest > buffer.size() && wait(false, 0);) {
    const ssize_t result = ::read(tree_.queue(), buffer.data(), buffer.size());
    count = result > 0 ? static_cast<std::size_t>(result) : 0;
    for (std::span<const char> rest(buffer.data(), count); !rest.empty();) {
      inotify_event event{};
      std::memcpy(&event, rest.data(), sizeof event);
      const auto name = rest.subspan(sizeof event, event.len);  // padded with zero bytes
      if (const auto lost = takeIn(event, {name.data(), ::strnlen(name.data(), name.size())});
          lost != 0) {
        establishAgain(lost);
        return;
      }
      rest = rest.subspan(sizeof event + name.size());
    }
  }
}

void InotifyStream::planRetry() {
  itimerspec setting = {};  // all zero disarms
  if (timerfd_gettime(retry_.get(), &setting) == 0 && !isComplete() &&
      setting.it_value.tv_sec == 0 && setting.it_value.tv_nsec == 0) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(retryAfter_);
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec = (retryAfter_ - seconds).count();
    (void)timerfd_settime(retry_.get(), 0, &setting, nullptr);
  }
}

void InotifyStream::retry() {
  if (noEventWillTell_) {
    establishAgain(0);
  } else {
    tree_.retry();
  }
}

// Reports an event and keeps the watches in step with it. Not zero when they must be set up again
// from nothing; then it says why.
std::uint32_t InotifyStream::takeIn(const inotify_event& event, std::string_view name) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) {
    return eventFlag::mustScanSubDirs | eventFlag::kernelDropped;
  }
  constexpr std::uint32_t gone = IN_MOVE_SELF | IN_DELETE_SELF | IN_UNMOUNT;
  if ((event.wd == awaitedIn_ && name == awaited_) ||
      ((event.mask & gone) != 0 && guards_.contains(event.wd))) {
    return eventFlag::rootChanged;
  }
  const std::string* const directory = tree_.directory(event.wd);
  if (directory == nullptr) {
    return 0;  // queued before its watch was removed
  }
  if ((event.mask & IN_IGNORED) != 0) {
    tree_.forget(event.wd);
    return 0;
  }
  if (name.empty()) {
    return 0;
  }
  const std::string path = std::string(*directory).append("/").append(name);
  std::uint32_t flags = (event.mask & IN_ISDIR) != 0 ? eventFlag::itemIsDir : eventFlag::itemIsFile;
  if ((event.mask & IN_MODIFY) != 0) {
    flags |= eventFlag::itemModified;
  }
  if ((event.mask & IN_CREATE) != 0) {
    flags |= eventFlag::itemCreated;
  }
  if ((event.mask & IN_DELETE) != 0) {
    flags |= eventFlag::itemRemoved;
  }
  if ((event.mask & (IN_MOVED_FROM | IN_MOVED_TO)) != 0) {
    flags |= eventFlag::itemRenamed;
  }
  delivery_.add(path, flags);
  if ((event.mask & IN_ISDIR) != 0) {
    if ((event.mask & (IN_CREATE | IN_MOVED_TO)) != 0) {
      tree_.watchNew(path);
    } else if ((event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0) {
      tree_.forget(path);  // not where only its time was set, which is a modification too
    }
  }
  return 0;
}

void InotifyStream::establishAgain(std::uint32_t reason) {
  const Root before = state_;
  establish();
  // A reason is told although all is as before: a root may have come, been read and gone again.
  const std::uint32_t flags = reason | (state_ == before ? 0 : eventFlag::rootChanged);
  if (flags != 0) {
    delivery_.replace(flags);
  }
}

// Finds the root and watches its tree or, without a root, the place where it will appear.
void InotifyStream::establish() {
  while (!findRoot() && wait(false, 0)) {
  }
  if (state_ == Root::absent) {
    return;
  }
  if (tree_.watchRoot(realRoot_)) {
    state_ = Root::watched;
  } else {
    noEventWillTell_ = true;
  }
}

// Walks the root's path from "/" on, with a fresh queue, so that nothing stays behind of old
// watches and their events. Each step is guarded before it is looked at, so no change slips in
// between. False when what was missing appeared meanwhile and the walk must begin again.
bool InotifyStream::findRoot() {
  guards_.clear();
  awaitedIn_ = -1;
  state_ = Root::absent;
  noEventWillTell_ = !tree_.begin();
  if (noEventWillTell_) {
    return true;
  }
  fs::path reached = "/";
  guard(reached);
  std::deque<fs::path> rest(root_.begin(), root_.end());
  for (int links = 0; !rest.empty();) {
    const fs::path name = std::move(rest.front());
    rest.pop_front();
    if (name.empty() || name == "." || name == "/") {
      continue;
    }
    if (name == "..") {
      reached = reached.parent_path();
      continue;
    }
    const fs::path next = reached / name;
    guard(next);
    std::error_code failure;
    switch (fs::symlink_status(next, failure).type()) {
      case fs::file_type::directory:
        reached = next;
        break;
      case fs::file_type::symlink: {
        const fs::path target = fs::read_symlink(next, failure);
        if (failure || ++links > maxLinks) {
          return true;  // the guards tell when this changes
        }
        if (target.is_absolute()) {
          reached = "/";
        }
        rest.insert(rest.begin(), target.begin(), target.end());
        break;
      }
      default:
        return awaitEntry(reached, name);
    }
  }
  realRoot_ = reached;
  state_ = Root::unwatched;
  return true;
}

// Waits for something to appear under `name`; false when it is there already.
bool InotifyStream::awaitEntry(const fs::path& directory, const std::string& name) {
  awaitedIn_ = tree_.addWatch(directory, entryMask).value_or(-1);
  awaited_ = name;
  noEventWillTell_ = awaitedIn_ < 0;
  std::error_code failure;
  const fs::file_type type = fs::symlink_status(directory / name, failure).type();
  return type != fs::file_type::directory && type != fs::file_type::symlink;
}

void InotifyStream::guard(const fs::path& path) {
  if (const auto watch = tree_.addWatch(path, guardMask)) {
    guards_.insert(*watch);
  }
}

}  // namespace

std::unique_ptr<EventStream> InotifyStreamSource::open(const std::string& path, Seconds latency,
                                                       Callback callback) {
  OwnedDescriptor stop(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  OwnedDescriptor retry(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK));
  // Another is opened when it is used. Where the system has none to give, nothing is to be watched.
  const OwnedDescriptor queue(inotify_init1(IN_CLOEXEC));
  std::error_code failure;
  std::string root = fs::absolute(path, failure);
  while (root.ends_with('/')) {
    root.pop_back();
  }
  if (!stop.isOpen() || !retry.isOpen() || !queue.isOpen() || failure) {
    return refused();
  }
  try {
    auto stream =
        std::make_unique<InotifyStream>(log_, watchLimit_, retryAfter_, std::move(root), latency,
                                        std::move(callback), std::move(stop), std::move(retry));
    saidRefused_ = false;
    return stream;
  } catch (const std::system_error&) {  // no thread
    return refused();
  }
}

std::unique_ptr<EventStream> InotifyStreamSource::refused() {
  if (!std::exchange(saidRefused_, true)) {
    log_.error("files cannot be watched, their changes will be seen only at the next refresh");
  }
  return nullptr;
}

}  // namespace marigold
