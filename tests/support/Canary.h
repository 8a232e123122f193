#pragma once

#include <algorithm>
#include <csignal>
#include <sstream>

#include <fcntl.h>
#include <sys/wait.h>

#include "base/OwnedDescriptor.h"
#include "base/Secret.h"
#include "support/TemporaryDirectory.h"

namespace marigold::test {

/// A token to look for afterwards. No copy of it lies in the program itself: it is computed.
struct Canary {
  [[nodiscard]] static std::size_t copiesIn(std::string_view bytes) {
    // Not the first of it: the first bytes of freed memory are the allocator's.
    const Secret sought = characters(100, 200);
    std::size_t copies = 0;
    for (auto at = bytes.find(sought.expose()); at != std::string_view::npos;
         at = bytes.find(sought.expose(), at + 1)) {
      ++copies;
    }
    return copies;
  }

  /// Writes a login both of whose tokens it is to the file at `relative`; gives its path.
  static std::string writeLogin(const TemporaryDirectory& directory, std::string_view relative) {
    const std::string path = directory.write(relative, "");
    const OwnedDescriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    const Secret token = characters(0, 300);
    ssize_t written = 0;
    for (const std::string_view part :
         {std::string_view(R"({"claudeAiOauth":{"refreshToken":")"), token.expose(),
          std::string_view(R"(","accessToken":")"), token.expose(), std::string_view("\"}}")}) {
      written += ::write(file.get(), part.data(), part.size());
    }
    return written == 654 ? path : "";
  }

 private:
  static Secret characters(std::size_t from, std::size_t to) {
    Secret text = Secret::withRoom(to - from);
    for (std::size_t i = from; i < to; ++i) {
      text.room().front() = static_cast<char>('A' + (i * 2'654'435'761U >> 13U) % 26);
      text.grow(1);
    }
    return text;
  }
};

/// How many copies lie in memory, and how many of those where a core dump would have them.
struct Copies {
  std::size_t inMemory = 0;
  std::size_t inCoreDumps = 0;

  bool operator==(const Copies&) const = default;
};

/// How often the canary lies in the memory of a process, freed memory included. It holds still for
/// that.
inline Copies copiesOfCanary(pid_t still) {
  ::kill(still, SIGSTOP);
  const std::string process = "/proc/" + std::to_string(still);
  const OwnedDescriptor memory(::open((process + "/mem").c_str(), O_RDONLY | O_CLOEXEC));
  std::ifstream mappings(process + "/smaps");
  Copies copies;
  std::size_t found = 0;  // in the mapping that the lines are about; its flags come last
  for (std::string line; std::getline(mappings, line);) {
    std::istringstream fields(line);
    std::size_t start = 0;
    std::size_t end = 0;
    char dash = 0;
    std::string permissions;
    if (fields >> std::hex >> start >> dash >> end >> permissions && dash == '-') {
      // The largest are a sanitizer's notes.
      const bool read = permissions.starts_with("rw") && end - start < 1UL << 28U;
      Secret bytes = Secret::withRoom(read ? end - start : 0);
      const std::span<char> room = bytes.room();
      const ssize_t count =
          ::pread(memory.get(), room.data(), room.size(), static_cast<off_t>(start));
      bytes.grow(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
      found = Canary::copiesIn(bytes.expose());
      copies.inMemory += found;
    } else if (line.starts_with("VmFlags:") && line.find(" dd") == std::string::npos) {
      copies.inCoreDumps += found;
    }
  }
  ::kill(still, SIGCONT);
  return copies;
}

/// The same for this process, by a copy of it.
inline Copies copiesOfCanary() {
  const pid_t copy = ::fork();
  if (copy == 0) {
    ::alarm(60);
    ::pause();
    ::_exit(0);
  }
  const Copies copies = copiesOfCanary(copy);
  ::kill(copy, SIGKILL);
  ::waitpid(copy, nullptr, 0);
  return copies;
}

}  // namespace marigold::test
