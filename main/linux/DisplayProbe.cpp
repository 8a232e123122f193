#include "DisplayProbe.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <utility>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include "OwnedDescriptor.h"

namespace marigold {

namespace {

// Whether a compositor at this socket answers a first request.
bool waylandAnswers(const std::string& path, Seconds patience) {
  sockaddr_un address{.sun_family = AF_UNIX};
  const OwnedDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket.isOpen() || !path.starts_with('/') || path.size() >= sizeof address.sun_path) {
    return false;
  }
  std::ranges::copy(path, std::begin(address.sun_path));
  const auto limit = std::chrono::round<std::chrono::microseconds>(patience).count();
  const timeval each{.tv_sec = limit / 1'000'000, .tv_usec = limit % 1'000'000};
  (void)::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &each, sizeof each);  // connect's too
  (void)::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &each, sizeof each);

  // wl_display.sync: request 0 of object 1, of 12 bytes; its answer is an event of new object 2.
  constexpr std::uint32_t display = 1;
  constexpr std::uint32_t callback = 2;
  const std::array<std::uint32_t, 3> sync{display, 12U << 16U, callback};
  std::array<std::uint32_t, 2> event{};
  // NOLINTNEXTLINE(*-reinterpret-cast): how socket addresses are
  const auto* peer = reinterpret_cast<const sockaddr*>(&address);
  return ::connect(socket.get(), peer, sizeof address) == 0 &&
         ::send(socket.get(), sync.data(), sizeof sync, MSG_NOSIGNAL) == ssize_t{sizeof sync} &&
         ::recv(socket.get(), event.data(), sizeof event, MSG_WAITALL) == ssize_t{sizeof event} &&
         event.front() == callback;
}

// Whether the X server lets us in. libxcb waits without end for one that accepts and never answers,
// and knows alone how to find and to prove oneself to it: so a child asks, which can be ended.
bool x11Answers(const std::string& display, Seconds patience) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    return false;
  }
  const OwnedDescriptor answer(ends[0]);
  OwnedDescriptor say(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) {
    return false;
  }
  if (child == 0) {
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // libxcb repeats there what the server says, often without the end of the line.
    if (const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC); nowhere >= 0) {
      (void)::dup2(nowhere, STDERR_FILENO);
    }
    if (xcb_connection_has_error(xcb_connect(display.c_str(), nullptr)) == 0) {
      [[maybe_unused]] const ssize_t ignored = ::write(say.get(), "y", 1);
    }
    ::_exit(EXIT_SUCCESS);
  }
  say.close();
  pollfd ended{.fd = answer.get(), .events = POLLIN, .revents = 0};
  const auto limit = std::chrono::ceil<std::chrono::milliseconds>(patience).count();
  char yes = 0;
  const bool usable =
      ::poll(&ended, 1, static_cast<int>(limit)) == 1 && ::read(answer.get(), &yes, 1) == 1;
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  return usable;
}

bool hasPlugin(const std::vector<std::string>& directories, const QString& pattern) {
  return std::ranges::any_of(directories, [&](const std::string& directory) {
    return !QDir(QString::fromStdString(directory)).entryList({pattern}, QDir::Files).isEmpty();
  });
}

std::string variable(const char* name) {
  return qgetenv(name).toStdString();
}

// A display that the environment names.
struct NamedDisplay {
  std::string kind;  // for the log
  std::string name;  // empty when there is none
  QString plugin;    // Qt's for it, as a pattern
  std::function<bool()> answers;

  [[nodiscard]] bool usable(const DisplayEnvironment& environment, Log& log) const {
    if (name.empty()) {
      return false;
    }
    const bool answered = answers();
    const bool result = answered && hasPlugin(environment.pluginDirectories, plugin);
    if (!result) {
      log.note("display: " + kind + " display " + name +
               (answered ? " is there, but not Qt's plugin for it" : " cannot be opened"));
    }
    return result;
  }
};

// Whether one platform of the list works: "xcb", "wayland-egl", with or without ":" and parameters.
bool works(std::string_view platform, const DisplayEnvironment& environment, Log& log,
           Seconds patience) {
  if (platform.starts_with("wayland")) {
    const std::string& name = environment.waylandDisplay;
    const std::string path =
        name.starts_with('/') ? name : environment.runtimeDirectory + "/" + name;
    return NamedDisplay{.kind = "Wayland",
                        .name = name,
                        .plugin = QStringLiteral("libqwayland*.so"),
                        .answers = [&] { return waylandAnswers(path, patience); }}
        .usable(environment, log);
  }
  if (platform.starts_with("xcb")) {
    const std::string& name = environment.x11Display;
    return NamedDisplay{.kind = "X11",
                        .name = name,
                        .plugin = QStringLiteral("libqxcb.so"),
                        .answers = [&] { return x11Answers(name, patience); }}
        .usable(environment, log);
  }
  return !platform.empty();
}

}  // namespace

DisplayEnvironment displayEnvironment() {
  DisplayEnvironment environment{.platforms = variable("QT_QPA_PLATFORM"),
                                 .waylandDisplay = variable("WAYLAND_DISPLAY"),
                                 .runtimeDirectory = variable("XDG_RUNTIME_DIR"),
                                 .x11Display = variable("DISPLAY")};
  for (const QString& directory : QCoreApplication::libraryPaths()) {
    environment.pluginDirectories.push_back(directory.toStdString() + "/platforms");
  }
  if (std::string own = variable("QT_QPA_PLATFORM_PLUGIN_PATH"); !own.empty()) {
    environment.pluginDirectories.push_back(std::move(own));
  }
  return environment;
}

std::optional<std::string> usablePlatforms(const DisplayEnvironment& environment, Log& log,
                                           Seconds patience) {
  std::string_view platforms =
      environment.platforms.empty() ? "wayland;xcb" : std::string_view(environment.platforms);
  for (;;) {
    const auto end = platforms.find(';');
    if (works(platforms.substr(0, end), environment, log, patience)) {
      return std::string(platforms);
    }
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    platforms.remove_prefix(end + 1);
  }
}

}  // namespace marigold
