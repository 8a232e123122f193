#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "LinuxLogin.h"
#include "support/Canary.h"
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

TEST(LinuxLogin, LeavesNoCopyOfTheToken) {
  const test::TemporaryDirectory directory;
  const std::string path = test::Canary::writeLogin(directory, "login");
  {
    const ClaudeLogin login = LinuxLogin(path, ::geteuid())();
    ASSERT_EQ(test::Canary::copiesIn(login.value().claudeAiOauth.accessToken.expose()), 1U);
    const test::Copies copies = test::copiesOfCanary();
    EXPECT_EQ(copies.inMemory, 1U);
    EXPECT_EQ(copies.inCoreDumps, 0U);
  }
  EXPECT_EQ(test::copiesOfCanary().inMemory, 0U);
}

}  // namespace
}  // namespace marigold
