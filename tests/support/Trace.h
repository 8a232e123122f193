#pragma once

#include <algorithm>
#include <array>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace marigold::test {

/// The command that has strace write what another and its children ask of the system concerning
/// files and sockets.
inline std::vector<std::string> tracing(const std::string& file) {
  return {MARIGOLD_STRACE,
          "-f",
          "-yy",
          "-qq",
          "-s",
          "4096",
          "-e",
          "trace=%file,socket,connect,bind,listen",
          "-o",
          file};
}

inline bool isAtOrBelow(std::string_view below, std::string_view above) {
  return below.starts_with(above) &&
         (below.size() == above.size() || above.ends_with('/') || below[above.size()] == '/');
}

/// What a trace shows besides paths at, below or above `places`, sockets in files, and connections
/// to `peer`, the port of a server on loopback, by programs that were started through a descriptor.
inline std::set<std::string> unexpected(const std::string& trace,
                                        const std::vector<std::string>& places,
                                        const std::string& peer) {
  static const std::regex call(R"(^(\d+) +(\w+)\((.*))");
  static const std::regex path(R"re((?:<([^>]*)>, )?"((?:[^"\\]|\\.)*)")re");
  const auto expected = [&](const std::string& name) {
    return std::ranges::any_of(places, [&](const std::string& place) {
      return isAtOrBelow(name, place) || isAtOrBelow(place, name);
    });
  };
  const std::string port = "htons(" + peer + ")";
  std::set<std::string> found;
  std::set<std::string> helpers;  // ids of processes
  std::istringstream lines(trace);
  for (std::string line; std::getline(lines, line);) {
    std::smatch parts;
    if (!std::regex_match(line, parts, call)) {
      continue;  // a signal, or the end of a call that another interrupted
    }
    const std::string id = parts[1];
    const std::string name = parts[2];
    const std::string arguments = parts[3];
    if (constexpr std::array sockets{"socket", "connect", "bind", "listen"};
        std::ranges::find(sockets, name) != sockets.end()) {
      const bool local = arguments.contains("AF_UNIX") || arguments.contains("AF_NETLINK");
      const bool asks = helpers.contains(id) &&
                        (name == "socket" || (name == "connect" && arguments.contains(port) &&
                                              arguments.contains("127.0.0.1")));
      if (name == "listen" ? !arguments.contains("<UNIX") : !local && !asks) {
        found.insert(std::string(name).append("(").append(arguments));
      }
      continue;
    }
    if (name == "execve" && arguments.starts_with("\"/proc/self/fd/")) {
      helpers.insert(id);
    }
    for (auto each = std::sregex_iterator(arguments.begin(), arguments.end(), path);
         each != std::sregex_iterator(); ++each) {
      const std::string below = (*each)[2];
      const std::filesystem::path full = std::filesystem::path((*each)[1].str()) / below;
      // Nothing below a descriptor is the file itself, which was opened before.
      if (full.is_absolute() && !below.empty() && !expected(full.lexically_normal())) {
        found.insert(full.lexically_normal());
      }
      if (!name.starts_with("rename")) {
        break;  // what follows is an answer
      }
    }
  }
  return found;
}

}  // namespace marigold::test
