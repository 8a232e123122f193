#include "linux/instance/InstanceSeat.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "base/AtomicFile.h"

namespace marigold {

namespace {

constexpr const char* lockName = "instance.lock";
constexpr const char* socketName = "instance";
constexpr const char* newSocketName = "instance.new";

// A runtime directory of another user's, as it is left after su, is not for us.
std::string baseDirectory(const Environment& environment, const Surroundings& surroundings) {
  const auto named = environment.find("XDG_RUNTIME_DIR");
  const std::string runtime = named == environment.end() ? std::string() : named->second;
  struct stat status = {};
  const bool usable = runtime.starts_with('/') && ::stat(runtime.c_str(), &status) == 0 &&
                      S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
  return usable ? withoutTrailingSlashes(runtime) : surroundings.applicationSupport;
}

// Reached through the open directory: a path of its own may be longer than an address holds.
class Address {
 public:
  Address(const OwnedDescriptor& directory, const char* name) {
    const std::string path = "/proc/self/fd/" + std::to_string(directory.get()) + "/" + name;
    address_.sun_family = AF_UNIX;
    std::ranges::copy(path, std::begin(address_.sun_path));
  }

  [[nodiscard]] const sockaddr* get() const {
    // NOLINTNEXTLINE(*-reinterpret-cast): as every kind of address is handed over
    return reinterpret_cast<const sockaddr*>(&address_);
  }
  static constexpr socklen_t size = sizeof(sockaddr_un);

 private:
  sockaddr_un address_ = {};
};

OwnedDescriptor newSocket() {
  return OwnedDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

}  // namespace

InstanceSeat::InstanceSeat(const Environment& environment, const Surroundings& surroundings)
    : path_(baseDirectory(environment, surroundings) + "/" + surroundings.bundleIdentifier) {}

InstanceSeat::~InstanceSeat() {
  struct stat status = {};
  // Where the directory was swept, another one's socket may lie by now.
  if (lock_.isOpen() && ::fstat(lock_.get(), &status) == 0 && status.st_nlink > 0) {
    (void)::unlinkat(directory_.get(), socketName, 0);
  }
}

InstanceSeat::Taken InstanceSeat::take() {
  OwnedDescriptor directory = open(true);
  // The sticky bit keeps it from those who clean runtime directories.
  OwnedDescriptor lock(directory.isOpen() ? ::openat(directory.get(), lockName,
                                                     O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                                                     S_IRUSR | S_IWUSR | S_ISVTX)
                                          : -1);
  if (!lock.isOpen()) {
    return Taken::unavailable;
  }
  if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    return errno == EWOULDBLOCK ? Taken::elsewhere : Taken::unavailable;
  }
  if (!listen(directory)) {
    return Taken::unavailable;
  }
  lock_ = std::move(lock);
  directory_ = std::move(directory);
  return Taken::here;
}

OwnedDescriptor InstanceSeat::connect() const {
  const OwnedDescriptor directory = open(false);
  OwnedDescriptor socket = newSocket();
  if (!directory.isOpen() || !socket.isOpen() ||
      ::connect(socket.get(), Address(directory, socketName).get(), Address::size) != 0) {
    return OwnedDescriptor(-1);
  }
  return socket;
}

OwnedDescriptor InstanceSeat::open(bool make) const {
  if (make && !createDirectories(path_)) {
    return OwnedDescriptor(-1);
  }
  OwnedDescriptor directory(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status = {};
  if (!directory.isOpen() || ::fstat(directory.get(), &status) != 0 ||
      status.st_uid != ::geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return OwnedDescriptor(-1);
  }
  return directory;
}

// Under its name there is never one that does not listen yet.
bool InstanceSeat::listen(const OwnedDescriptor& directory) {
  constexpr int waitingAtMost = 64;
  OwnedDescriptor socket = newSocket();
  (void)::unlinkat(directory.get(), newSocketName, 0);
  if (!socket.isOpen() ||
      ::bind(socket.get(), Address(directory, newSocketName).get(), Address::size) != 0 ||
      ::listen(socket.get(), waitingAtMost) != 0 ||
      ::renameat(directory.get(), newSocketName, directory.get(), socketName) != 0) {
    return false;
  }
  listener_ = std::move(socket);
  return true;
}

}  // namespace marigold
