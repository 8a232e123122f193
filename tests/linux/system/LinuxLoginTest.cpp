#include <gtest/gtest.h>
#include <sys/mman.h>

#include "base/BoundedFile.h"
#include "base/JsonDocument.h"
#include "linux/system/LinuxLogin.h"
#include "support/Canary.h"
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
  const auto at = [&](const std::string& name) { return directory.path() + "/" + name; };
  const auto outcome = [](const std::string& path, uid_t user = ::geteuid()) {
    const ClaudeLogin found = LinuxLogin(path, user)();
    return found ? std::string(found->claudeAiOauth.accessToken.expose())
                 : found.error().description();
  };
  const std::string file = directory.write("file", good + "\n");
  EXPECT_EQ(outcome(file), "token");
  EXPECT_EQ(outcome(file, ::geteuid() + 1), "indeterminate(1)");
  for (const auto& [mode, told] :
       {std::pair(0644U, "token"), {0620U, "indeterminate(1)"}, {0602U, "indeterminate(1)"}}) {
    ::chmod(file.c_str(), mode);
    EXPECT_EQ(outcome(file), told);
  }
  fs::create_symlink(file, at("link"));
  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
  fs::permissions(directory.write("closed", good), fs::perms::none);
  for (const auto& [name, told] : {std::pair("link", "indeterminate(22)"),
                                   {"fifo", "indeterminate(22)"},
                                   {"", "indeterminate(22)"},
                                   {"absent", "notInstalled"},
                                   {"file/absent", "notInstalled"},
                                   {"closed", "exitStatus(13)"}}) {
    std::string found;
    test::asOrdinaryUser([&, path = at(name)] { found = outcome(path); });
    EXPECT_EQ(found, told) << name;
  }
  EXPECT_EQ(outcome(at(std::string(300, 'x'))), "exitStatus(36)");

  const std::string deep(60'000, '[');
  const std::string full(131072 - good.size() - 7, 'x');
  const std::string twice = R"({"claudeAiOauth":{"accessToken":"first","accessToken":"second"},)";
  for (const auto& [content, told] :
       {std::pair(std::string(), "decode"),
        {R"({"claudeAiOauth":{"accessToken":""}})", "decode"},
        {R"({"x":")" + full + "\"," + good.substr(1), "token"},
        {R"({"x":")" + full + "\"," + good.substr(1) + "\n", "overflow"},
        {std::string(1U << 20U, 'x'), "overflow"},
        {R"({"x":)" + deep + "," + good.substr(1), "decode"},
        {twice + good.substr(1), "first"},
        {good + std::string(1, '\0'), "decode"},
        {std::string(99, '\0') + good, "decode"}}) {
    EXPECT_EQ(outcome(directory.write("content", content)), told) << content.substr(0, 99);
  }
}

// Whether any of the process's memory is kept from being swapped out.
bool locksMemory() {
  std::ifstream file("/proc/self/status");
  const std::string status(std::istreambuf_iterator<char>(file), {});
  return !status.contains("VmLck:\t       0");
}

TEST(LinuxLogin, LeavesNoCopyOfItsTokens) {
  const test::TemporaryDirectory directory;
  const std::string path = test::Canary::writeLogin(directory, "login");
  (void)::mlock(&path, 1);
  const bool mayLock = locksMemory();  // neither a small limit nor a sanitizer allows it
  (void)::munlockall();
  {
    const ClaudeLogin login = LinuxLogin(path, ::geteuid())();
    ASSERT_EQ(test::Canary::copiesIn(login.value().claudeAiOauth.accessToken.expose()), 1U);
    EXPECT_EQ(test::copiesOfCanary(), (test::Copies{.inMemory = 1}));
    EXPECT_EQ(locksMemory(), mayLock) << "it may be swapped out";

    Secret text = Secret::withRoom(1000);
    text.grow(BoundedFile::open(path).value().readAt(0, text.room()).value());
    const auto document = JsonDocument::parseSecretObject(text.expose());
    EXPECT_TRUE(document);
    EXPECT_EQ(test::copiesOfCanary(), (test::Copies{.inMemory = 5})) << "the text, twice";
  }
  EXPECT_EQ(test::copiesOfCanary().inMemory, 0U);
}

}  // namespace
}  // namespace marigold
