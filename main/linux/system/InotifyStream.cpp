#include "linux/system/InotifyStream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <deque>
#include <expected>
#include <filesystem>
#include <span>
#include <string_view>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "base/OwnedDescriptor.h"

namespace marigold {

namespace {

namespace fs = std::filesystem;

// One inode may be watched for several reasons, so masks add up. No link is followed: the links in
// the root's path are resolved one by one.
constexpr std::uint32_t anyMask = IN_MASK_ADD | IN_DONT_FOLLOW;
// A directory of the tree. IN_MODIFY comes with each append, so IN_CLOSE_WRITE would add nothing;
// changed times and permissions bring no new content.
constexpr std::uint32_t treeMask = anyMask | IN_ONLYDIR | IN_EXCL_UNLINK | IN_MODIFY | IN_CREATE |
                                   IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
// A directory or link that the root's path leads through. Silent as long as it stays.
constexpr std::uint32_t guardMask = anyMask | IN_MOVE_SELF | IN_DELETE_SELF;
// The directory in which the next part of a missing root's path will appear.
constexpr std::uint32_t entryMask = anyMask | IN_ONLYDIR | IN_CREATE | IN_MOVED_TO;

// Links in the root's path before it counts as a circle, as in the kernel.
constexpr int maxLinks = 40;
// Events in one delivery before they are merged into one for the root.
constexpr std::size_t maxEvents = 4096;
bool isShortage(int error) {
  return error == ENOSPC || error == ENOMEM;
}

// Whether the directory `inner` is `outer` or lies below it; both relative to the root.
bool isWithin(std::string_view inner, std::string_view outer) {
  return inner.starts_with(outer) && (inner.size() == outer.size() || inner[outer.size()] == '/');
}

OwnedDescriptor openQueue() {
  return OwnedDescriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
}

// Blocks all signals in this thread, and so in the threads it starts.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

// The events of the next delivery, one for each path.
class Delivery {
 public:
  explicit Delivery(std::string root) : root_(std::move(root)) {}

  // `relative` is below the root and begins with '/'; empty for the root itself.
  void add(const std::string& relative, std::uint32_t flags) {
    if (merged_) {
      return;
    }
    if (const auto [at, isNew] = places_.try_emplace(relative, events_.size()); !isNew) {
      events_[at->second].flags |= flags;
      return;
    }
    events_.push_back({.path = root_ + relative, .flags = flags});
    if (events_.size() > maxEvents) {
      replace(eventFlag::mustScanSubDirs);
      merged_ = true;
    }
  }
  // One event for the root, which says all.
  void replace(std::uint32_t rootFlags) {
    (void)take();
    add("", rootFlags);
  }
  [[nodiscard]] std::vector<FileEvent> take() {
    places_.clear();
    merged_ = false;
    return std::exchange(events_, {});
  }

 private:
  std::string root_;
  std::vector<FileEvent> events_;
  std::unordered_map<std::string, std::size_t> places_;
  bool merged_ = false;
};

class InotifyStream final : public EventStream {
 public:
  InotifyStream(Log& log, std::size_t watchLimit, Seconds retryAfter, std::string root,
                Seconds latency, EventStreamSource::Callback callback, OwnedDescriptor stop,
                OwnedDescriptor retry, OwnedDescriptor queue)
      : log_(log),
        watchLimit_(watchLimit),
        retryAfter_(continuousDuration(retryAfter)),
        root_(root),
        latency_(latency),
        callback_(std::move(callback)),
        stop_(std::move(stop)),
        retry_(std::move(retry)),
        queue_(std::move(queue)),
        delivery_(std::move(root)) {
    const BlockedSignals duringStart;
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

  // What is told of a directory once it is watched.
  enum class Report : std::uint8_t {
    nothing,
    contents,  // what it holds, as new
    rescan,
  };

  void run();
  bool wait(bool forEvents, int milliseconds);
  void drain();
  [[nodiscard]] bool isComplete() const { return !noEventWillTell_ && unwatched_.empty(); }
  void planRetry();
  void retry();
  std::uint32_t takeIn(const inotify_event& event, std::string_view name);
  void establishAgain(std::uint32_t reason);
  void establish();
  bool findRoot();
  bool awaitEntry(const fs::path& directory, const std::string& name);
  void guard(const fs::path& path);
  void watchTree(std::vector<std::string> waiting, Report report);
  std::vector<std::string> listed(const std::string& directory, Report report);
  void forgetTree(const std::string& top);
  bool makeRoom(const std::string& directory);
  std::expected<int, int> addWatch(const fs::path& path, std::uint32_t mask);

  Log& log_;
  const std::size_t watchLimit_;
  const ContinuousClock::duration retryAfter_;
  const fs::path root_;  // absolute
  const Seconds latency_;
  const EventStreamSource::Callback callback_;
  const OwnedDescriptor stop_;
  const OwnedDescriptor retry_;  // a timer, set while something is not watched that should be

  // Everything below belongs to the thread.
  OwnedDescriptor queue_;
  Delivery delivery_;
  Root state_ = Root::absent;
  bool noEventWillTell_ = false;               // of a change of the state
  std::string realRoot_;                       // without links
  std::unordered_map<int, std::string> tree_;  // watched directories, relative to the root
  std::vector<std::string> unwatched_;         // refused, with all below them; newest last
  std::unordered_set<int> guards_;
  int awaitedIn_ = -1;  // the watch on the directory in which `awaited_` will appear
  std::string awaited_;
  bool saidOutOfWatches_ = false;

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
                                     {.fd = forEvents ? queue_.get() : -1, .events = POLLIN},
                                     {.fd = forEvents ? retry_.get() : -1, .events = POLLIN}}};
  (void)::poll(descriptors.data(), descriptors.size(), milliseconds);
  return descriptors[0].revents == 0;
}

void InotifyStream::drain() {
  std::array<char, 16384> buffer{};
  constexpr std::size_t largest = sizeof(inotify_event) + NAME_MAX + 1;
  // A read that leaves room for another event has emptied the queue.
  for (std::size_t count = buffer.size(); count + largest > buffer.size() && wait(false, 0);) {
    const ssize_t result = ::read(queue_.get(), buffer.data(), buffer.size());
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
    watchTree(std::exchange(unwatched_, {}), Report::rescan);
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
  const auto directory = tree_.find(event.wd);
  if (directory == tree_.end()) {
    return 0;  // queued before its watch was removed
  }
  if ((event.mask & IN_IGNORED) != 0) {
    tree_.erase(directory);
    return 0;
  }
  if (name.empty()) {
    return 0;
  }
  std::string path = directory->second;
  path.append("/").append(name);
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
      watchTree({path}, Report::contents);
    } else if ((event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0) {
      forgetTree(path);  // not where only its time was set, which is a modification too
    }
  }
  return 0;
}

void InotifyStream::establishAgain(std::uint32_t reason) {
  const Root before = state_;
  establish();
  if (state_ != before) {
    delivery_.replace(reason | eventFlag::rootChanged);
  } else if (state_ == Root::watched) {
    delivery_.replace(reason);
  }
}

// Finds the root and watches its tree or, without a root, the place where it will appear.
void InotifyStream::establish() {
  while (!findRoot() && wait(false, 0)) {
  }
  if (state_ == Root::absent) {
    return;
  }
  watchTree({""}, Report::nothing);
  if (tree_.empty()) {
    noEventWillTell_ = true;
  } else {
    state_ = Root::watched;
  }
}

// Walks the root's path from "/" on, with a fresh queue, so that nothing stays behind of old
// watches and their events. Each step is guarded before it is looked at, so no change slips in
// between. False when what was missing appeared meanwhile and the walk must begin again.
bool InotifyStream::findRoot() {
  queue_.close();
  queue_ = openQueue();
  tree_.clear();
  unwatched_.clear();
  guards_.clear();
  awaitedIn_ = -1;
  state_ = Root::absent;
  noEventWillTell_ = !queue_.isOpen();
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
  awaitedIn_ = addWatch(directory, entryMask).value_or(-1);
  awaited_ = name;
  noEventWillTell_ = awaitedIn_ < 0;
  std::error_code failure;
  const fs::file_type type = fs::symlink_status(directory / name, failure).type();
  return type != fs::file_type::directory && type != fs::file_type::symlink;
}

void InotifyStream::guard(const fs::path& path) {
  if (const auto watch = addWatch(path, guardMask)) {
    guards_.insert(*watch);
  }
}

// Watches the directories `waiting`, the last one first, and all below them, newest first. Each is
// watched before it is listed: what is created later has an event, what was created before is in
// the list.
void InotifyStream::watchTree(std::vector<std::string> waiting, Report report) {
  while (!waiting.empty() && wait(false, 0)) {
    const std::string directory = waiting.back();
    const std::string path = realRoot_ + directory;
    auto watch = addWatch(path, treeMask);
    // What has just appeared is where something happens.
    if (!watch && isShortage(watch.error()) && report == Report::contents && makeRoom(directory)) {
      watch = addWatch(path, treeMask);
    }
    if (!watch && isShortage(watch.error())) {
      if (report == Report::contents) {
        delivery_.add(directory, eventFlag::mustScanSubDirs);
      }
      unwatched_.insert(unwatched_.end(), waiting.begin(), waiting.end());
      return;
    }
    waiting.pop_back();
    if (!watch) {
      continue;  // not readable; or gone or replaced, of which an event will tell
    }
    tree_.insert_or_assign(*watch, directory);
    if (report == Report::rescan) {
      delivery_.add(directory, eventFlag::mustScanSubDirs);
    }
    for (std::string& inside : listed(directory, report)) {
      waiting.push_back(std::move(inside));
    }
  }
}

// The directories in `directory`, the newest last.
std::vector<std::string> InotifyStream::listed(const std::string& directory, Report report) {
  std::vector<std::pair<fs::file_time_type, std::string>> found;
  std::error_code failure;
  for (fs::directory_iterator entry(realRoot_ + directory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    std::error_code unknown;
    const bool isDirectory = !entry->is_symlink(unknown) && entry->is_directory(unknown);
    std::string inside = directory + "/" + entry->path().filename().native();
    if (report == Report::contents) {
      const auto kind = isDirectory ? eventFlag::itemIsDir : eventFlag::itemIsFile;
      delivery_.add(inside, eventFlag::itemCreated | kind);
    }
    if (isDirectory) {
      found.emplace_back(entry->last_write_time(unknown), std::move(inside));
    }
  }
  std::ranges::sort(found);
  std::vector<std::string> paths;
  paths.reserve(found.size());
  for (auto& [changed, inside] : found) {
    paths.push_back(std::move(inside));
  }
  return paths;
}

// Ends the watches on the directory `top` and all below it.
void InotifyStream::forgetTree(const std::string& top) {
  std::erase_if(unwatched_, [&](const std::string& directory) { return isWithin(directory, top); });
  std::erase_if(tree_, [&](const auto& watched) {
    const auto& [watch, directory] = watched;
    const bool within = isWithin(directory, top);
    if (within) {
      inotify_rm_watch(queue_.get(), watch);
    }
    return within;
  });
}

// Gives up the watches on the directories that changed longest ago, a share of all so that a burst
// of new ones does not look for them each time. False when all lead to `directory`.
bool InotifyStream::makeRoom(const std::string& directory) {
  std::vector<std::pair<fs::file_time_type, int>> byAge;
  for (const auto& [watch, watched] : tree_) {
    std::error_code unknown;
    if (!isWithin(directory, watched)) {
      byAge.emplace_back(fs::last_write_time(realRoot_ + watched, unknown), watch);
    }
  }
  if (byAge.empty()) {
    return false;
  }
  std::ranges::sort(byAge);
  byAge.resize(1 + byAge.size() / 16);
  std::vector<std::string> oldest;
  for (const auto& [changed, watch] : byAge) {
    inotify_rm_watch(queue_.get(), watch);
    oldest.push_back(std::move(tree_.extract(watch).mapped()));
  }
  unwatched_.insert(unwatched_.begin(), oldest.begin(), oldest.end());
  return true;
}

// The watch's number, or why there is none.
std::expected<int, int> InotifyStream::addWatch(const fs::path& path, std::uint32_t mask) {
  int failure = ENOSPC;
  if (mask != treeMask || tree_.size() < watchLimit_) {
    const int watch = inotify_add_watch(queue_.get(), path.c_str(), mask);
    if (watch >= 0) {
      return watch;
    }
    failure = errno;
  }
  if (isShortage(failure) && !std::exchange(saidOutOfWatches_, true)) {
    log_.error("out of file watches, some changes will be seen only at the next refresh");
  }
  return std::unexpected(failure);
}

}  // namespace

std::unique_ptr<EventStream> InotifyStreamSource::open(const std::string& path, Seconds latency,
                                                       Callback callback) {
  OwnedDescriptor stop(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  OwnedDescriptor retry(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK));
  OwnedDescriptor queue = openQueue();
  std::error_code failure;
  std::string root = fs::absolute(path, failure);
  while (root.ends_with('/')) {
    root.pop_back();
  }
  if (!stop.isOpen() || !retry.isOpen() || !queue.isOpen() || failure) {
    return nullptr;
  }
  try {
    return std::make_unique<InotifyStream>(log_, watchLimit_, retryAfter_, std::move(root), latency,
                                           std::move(callback), std::move(stop), std::move(retry),
                                           std::move(queue));
  } catch (const std::system_error&) {  // no thread
    return nullptr;
  }
}

}  // namespace marigold
