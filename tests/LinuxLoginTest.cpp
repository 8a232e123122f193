#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "LinuxLogin.h"
#include "support/OrdinaryUser.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;

TEST(LinuxLogin, LooksWhereClaudeCodeKeepsIt) {
  EXPECT_EQ(claudeCredentialsFile({.home = "/u"}), "/u/.claude/.credentials.json");
  EXPECT_EQ(claudeCredentialsFile({.home = "/u", .environment = {{"CLAUDE_CONFIG_DIR", "~/c/"}}}),
            "/u/c/.credentials.json");
}

TEST(LinuxLogin, BelievesOneReadableFileOfTheUserOnly) {
  const test::TemporaryDirectory directory;
  const std::string good = R"({"claudeAiOauth":{"accessToken":"token","subscriptionType":"pro"}})";
  const auto write = [&](const char* name, const std::string& content) {
    return directory.write(name, content);
  };
  const auto at = [&](const char* name) { return directory.path() + "/" + name; };
  const auto outcome = [](const std::string& path, uid_t user = ::geteuid()) {
    const ClaudeLogin found = LinuxLogin(path, user)();
    return found ? std::string(found->claudeAiOauth.accessToken.expose())
                 : found.error().description();
  };
  const std::string file = write("file", good + "\n");
  EXPECT_EQ(outcome(file), "token");
  EXPECT_EQ(outcome(file, ::geteuid() + 1), "indeterminate(1)");
  fs::create_symlink(file, at("link"));
  EXPECT_EQ(outcome(at("link")), "indeterminate(22)");
  EXPECT_EQ(outcome(directory.path()), "indeterminate(22)");
  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
  EXPECT_EQ(outcome(at("fifo")), "indeterminate(22)");
  EXPECT_EQ(outcome(at("absent")), "notInstalled");
  EXPECT_EQ(outcome(file + "/absent"), "notInstalled");
  EXPECT_EQ(outcome(file + std::string(300, 'x')), "exitStatus(36)");
  fs::permissions(write("closed", good), fs::perms::none);
  test::asOrdinaryUser([&] { EXPECT_EQ(outcome(at("closed")), "exitStatus(13)"); });
  EXPECT_EQ(outcome(write("signed-out", R"({"claudeAiOauth":{"accessToken":""}})")), "decode");
  EXPECT_EQ(outcome(write("empty", "")), "decode");
  const std::string space(131072 - good.size() - 7, 'x');
  EXPECT_EQ(outcome(write("full", R"({"x":")" + space + "\"," + good.substr(1))), "token");
  EXPECT_EQ(outcome(write("over", R"({"x":")" + space + "\"," + good.substr(1) + "\n")),
            "overflow");
}

// A token of which no copy lies in the program itself.
constexpr std::size_t tokenLength = 300;
char tokenCharacter(std::size_t i) {
  return static_cast<char>('A' + (i * i * 7 + i * 3) % 26);
}

std::size_t copiesIn(std::string_view bytes) {
  std::size_t copies = 0;
  for (std::size_t at = 0; at + tokenLength <= bytes.size(); ++at) {
    std::size_t same = 0;
    while (same < tokenLength && bytes[at + same] == tokenCharacter(same)) {
      ++same;
    }
    copies += same == tokenLength ? 1 : 0;
  }
  return copies;
}

struct Copies {
  std::size_t inMemory = 0;
  std::size_t inCoreDumps = 0;
};

// How often the token lies in this process's memory, freed memory included. A copy of the process
// holds still for it.
Copies copiesOfToken() {
  const pid_t still = ::fork();
  if (still == 0) {
    ::alarm(60);
    ::pause();
    ::_exit(0);
  }
  const std::string process = "/proc/" + std::to_string(still);
  const int memory = ::open((process + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
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
      const ssize_t count = ::pread(memory, room.data(), room.size(), static_cast<off_t>(start));
      bytes.grow(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
      found = copiesIn(bytes.expose());
      copies.inMemory += found;
    } else if (line.starts_with("VmFlags:") && line.find(" dd") == std::string::npos) {
      copies.inCoreDumps += found;
    }
  }
  ::close(memory);
  ::kill(still, SIGKILL);
  ::waitpid(still, nullptr, 0);
  return copies;
}

TEST(LinuxLogin, LeavesNoCopyOfTheToken) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.write("login", R"({"claudeAiOauth":{"accessToken":")");
  {
    Secret token = Secret::withRoom(tokenLength);
    for (std::size_t i = 0; i < tokenLength; ++i) {
      token.room().front() = tokenCharacter(i);
      token.grow(1);
    }
    const int file = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_EQ(::write(file, token.expose().data(), tokenLength), ssize_t{tokenLength});
    ASSERT_EQ(::write(file, "\"}}", 3), 3);
    ::close(file);
  }
  {
    const ClaudeLogin login = LinuxLogin(path, ::geteuid())();
    ASSERT_EQ(copiesIn(login.value().claudeAiOauth.accessToken.expose()), 1U);
    const Copies copies = copiesOfToken();
    EXPECT_EQ(copies.inMemory, 1U);
    EXPECT_EQ(copies.inCoreDumps, 0U);
  }
  EXPECT_EQ(copiesOfToken().inMemory, 0U);
}

}  // namespace
}  // namespace marigold
