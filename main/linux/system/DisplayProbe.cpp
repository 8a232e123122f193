#include "linux/system/DisplayProbe.h"

#include <string_view>

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

}  // namespace

std::optional<std::string> usablePlatforms(const Environment& environment, Log& log,
                                           const std::string& program, Seconds patience) {
  std::map<std::string, std::string> forChild = environment;
  forChild.erase("SESSION_MANAGER");                   // which it must not join
  forChild["DBUS_SESSION_BUS_ADDRESS"] = "disabled:";  // nor wait for a bus
  forChild["QT_LOGGING_RULES"] = "*=false";            // nobody reads it

  const auto works = [&](const std::string& platform) {
    const char* const naming = displayVariable(platform);
    const std::string name = naming == nullptr ? std::string() : variable(environment, naming);
    if (platform.empty() || (naming != nullptr && name.empty())) {
      return false;
    }
    const ProbeAnswer answer = probe(program, Probe::platform, platform, forChild, patience);
    if (answer != ProbeAnswer::works) {
      log.note("display: " + platform + (name.empty() ? "" : " " + name) +
               (answer == ProbeAnswer::silent ? " does not answer" : " cannot be opened"));
    }
    return answer == ProbeAnswer::works;
  };

  const std::string chosen = variable(environment, "QT_QPA_PLATFORM");
  std::string_view platforms = chosen.empty() ? "wayland;xcb" : std::string_view(chosen);
  for (;;) {
    const auto end = platforms.find(';');
    if (works(std::string(platforms.substr(0, end)))) {
      return std::string(platforms);
    }
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    platforms.remove_prefix(end + 1);
  }
}

}  // namespace marigold
