#include "linux/system/DisplayProbe.h"

#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <QtGui/QGuiApplication>
#include <unistd.h>

#include "linux/system/Probe.h"

namespace marigold {

namespace {

std::string variable(const Environment& environment, const char* name) {
  const auto found = environment.find(name);
  return found == environment.end() ? std::string() : found->second;
}

// The variable that names the display of a platform such as "xcb" or "wayland-egl", with or without
// ":" and parameters; null for one that needs no name.
const char* displayVariable(std::string_view platform) {
  if (platform.starts_with("wayland")) {
    return "WAYLAND_DISPLAY";
  }
  return platform.starts_with("xcb") ? "DISPLAY" : nullptr;
}

// Ends this process where it cannot.
bool opens(std::string platform, Environment environment) {
  environment.erase("SESSION_MANAGER");                   // which it must not join
  environment["DBUS_SESSION_BUS_ADDRESS"] = "disabled:";  // nor wait for a bus
  environment["QT_LOGGING_RULES"] = "*=false";            // nobody reads it
  ::clearenv();  // NOLINT(concurrency-mt-unsafe): this copy has a single thread
  for (const auto& [name, value] : environment) {
    ::setenv(name.c_str(), value.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): as above
  }
  std::array<std::string, 2> texts{"marigold", "-platform"};
  std::array<char*, 4> words{texts[0].data(), texts[1].data(), platform.data(), nullptr};
  int count = 3;
  const QGuiApplication application(count, words.data());
  ::_exit(EXIT_SUCCESS);  // without the wait for the display that an orderly end may be
}

}  // namespace

std::optional<std::string> usablePlatforms(const Environment& environment, Log& log,
                                           const std::function<void()>& meanwhile,
                                           Seconds patience) {
  std::function<void()> onceMeanwhile = meanwhile;
  const auto works = [&](const std::string& platform) {
    const char* const naming = displayVariable(platform);
    const std::string name = naming == nullptr ? std::string() : variable(environment, naming);
    if (platform.empty() || (naming != nullptr && name.empty())) {
      return false;
    }
    Trial trial([&] { return opens(platform, environment); });
    std::exchange(onceMeanwhile, [] {})();
    const ProbeAnswer answer = trial.answer(patience);
    if (answer != ProbeAnswer::works) {
      log.note("display: " + platform + (name.empty() ? "" : " " + name) +
               (answer == ProbeAnswer::silent ? " does not answer" : " cannot be opened"));
    }
    return answer == ProbeAnswer::works;
  };

  const std::string chosen = variable(environment, "QT_QPA_PLATFORM");
  std::string_view platforms = chosen.empty() ? "wayland;xcb" : std::string_view(chosen);
  std::optional<std::string> usable;
  for (;;) {
    const auto end = platforms.find(';');
    if (works(std::string(platforms.substr(0, end)))) {
      usable = platforms;
      break;
    }
    if (end == std::string_view::npos) {
      break;
    }
    platforms.remove_prefix(end + 1);
  }
  onceMeanwhile();
  return usable;
}

}  // namespace marigold
