// The rules of reading a login over the system's interfaces, on a keychain in memory.
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <unistd.h>

#include "claude/keychain/KeychainReader.h"
#include "macos/MacKeychain.h"
#include "macos/MacLogin.h"
#include "macos/gnustep/FakeSecurity.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

class Tool final : public SecretCommandRunning {
 public:
  std::vector<std::string> seen;

  SecretCommandResult run(const std::vector<std::string>& arguments) override {
    EXPECT_TRUE(fake::interactionAllowed) << "the tool may not run in the quiet";
    seen = arguments;
    SecretCommandResult result;
    result.stdoutBytes = Secret(R"({"claudeAiOauth":{"accessToken":"t"}})");
    return result;
  }
};

fake::ACL partitions(const std::string& one) {
  return {.authorizations = {"PartitionID"},
          .applications = std::nullopt,
          .description = R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>)"
                         R"(Partitions</key><array><string>)" +
                         one + "</string></array></dict></plist>"};
}

// As Claude Code leaves it behind.
fake::Item item() {
  return {.acls = {{.authorizations = {"Encrypt"}, .applications = {{}}, .description = "e"},
                   {.authorizations = {"Decrypt", "Derive"},
                    .applications = {{"/Applications/Other.app", "/usr/bin/security"}},
                    .description = "Claude"},
                   partitions("apple-tool:")}};
}

struct MacKeychainTest : testing::Test {
  MacKeychainTest() { fake::keychain = {.path = place.write("login.keychain-db", "x")}; }

  test::TemporaryDirectory place;
  MacKeychain keychain;
};

TEST_F(MacKeychainTest, LetsTheReaderSeeAllThatItDecidesBy) {
  using Items = std::vector<fake::Item>;
  const std::string file = fake::keychain.path;
  struct Case {
    const char* what;
    std::function<void(Items&)> change;
    std::string outcome;
  };
  const std::vector<Case> cases{
      {"as it should be", [](Items&) {}, "read"},
      {"one of another service beside it",
       [](Items& items) {
         items.push_back(items[0]);
         items[0].service = "another";
       },
       "read"},
      {"none", [](Items& items) { items.clear(); }, "notInstalled"},
      {"two", [](Items& items) { items.push_back(items[0]); }, "ambiguous(2)"},
      {"a search refused", [](Items&) { fake::keychain.searchStatus = -25293; },
       "indeterminate(-25293)"},
      {"one match and no list", [](Items&) { fake::keychain.listless = true; }, "indeterminate(0)"},
      {"no account", [](Items& items) { items[0].account.reset(); }, "indeterminate(-25304)"},
      {"no reference", [](Items& items) { items[0].reference = fake::Reference::none; },
       "indeterminate(-25304)"},
      {"no item's reference", [](Items& items) { items[0].reference = fake::Reference::another; },
       "indeterminate(-25304)"},
      {"no keychain", [](Items&) { fake::keychain.keychainStatus = -25307; },
       "indeterminate(-25307)"},
      {"a keychain that is nothing", [](Items&) { fake::keychain.isThere = false; },
       "indeterminate(-25294)"},
      {"a path as long as can be",
       [](Items&) { fake::keychain.path = "/" + std::string(1022, 'x'); }, "indeterminate(-25294)"},
      {"a longer one", [](Items&) { fake::keychain.path = "/" + std::string(1023, 'x'); },
       "indeterminate(-25301)"},
      {"no status", [](Items&) { fake::keychain.statusStatus = -61; }, "indeterminate(-61)"},
      {"locked", [](Items&) { fake::keychain.status = 6; }, "locked"},
      {"no partition list", [](Items& items) { items[0].acls.pop_back(); }, "read"},
      {"another partition", [](Items& items) { items[0].acls[2] = partitions("apple:"); },
       "unauthorized"},
      {"a passphrase demanded", [](Items& items) { items[0].acls[1].prompt = 1; }, "unauthorized"},
      {"every application trusted", [](Items& items) { items[0].acls[1].applications.reset(); },
       "unauthorized"},
      {"another tool",
       [](Items& items) { items[0].acls[1].applications = {{"/usr/bin/security2"}}; },
       "unauthorized"},
      {"an application that cannot be read",
       [](Items& items) {
         items[0].acls[1].applications->insert(items[0].acls[1].applications->begin(),
                                               fake::unreadable);
       },
       "read"},
      {"a rule that cannot be read", [](Items& items) { items[0].acls[1].contentsStatus = -25240; },
       "unauthorized"},
      {"no list of rules", [](Items& items) { items[0].listStatus = -50; },
       "indeterminate(-25240)"},
      {"a prompt that would show", [](Items& items) { items[0].readingRulesAsks = true; },
       "indeterminate(-25240)"}};
  for (const auto& [what, change, outcome] : cases) {
    fake::keychain = {.items = {item()}, .path = file};
    change(fake::keychain.items);
    Tool tool;
    const ClaudeLogin login = KeychainReader::readClaude(keychain, tool);
    EXPECT_EQ(login ? "read" : login.error().description(), outcome) << what;
    EXPECT_TRUE(fake::interactionAllowed) << what;
    EXPECT_EQ(fake::prompts, 0) << what;
    EXPECT_EQ(fake::living, 0) << what << ": what was given out is not released";
    EXPECT_EQ(tool.seen, outcome == "read" ? KeychainReader::credentialArguments("me", file)
                                           : std::vector<std::string>())
        << what;
  }
}

TEST_F(MacKeychainTest, WouldShowAPromptWithoutTheReader) {
  fake::keychain.items = {item()};
  fake::keychain.items[0].readingRulesAsks = true;
  const auto matches = keychain.search(KeychainReader::service);
  EXPECT_TRUE(keychain.accessRules(matches.value().front().item));
  EXPECT_EQ(fake::prompts, 1);
  fake::prompts = 0;
}

TEST_F(MacKeychainTest, TheLoginIsReadByTheSystemsToolUntilAStop) {
  fake::keychain.items = {item()};
  MacLogin login({.home = place.path()});
  const bool hasTool = ::access(SecuritySecretRunner::executablePath, X_OK) == 0;
  const auto outcome = [&] { return login.read().error().description(); };
  EXPECT_EQ(outcome(), hasTool ? "notInstalled" : "launchFailed");
  login.stop();
  EXPECT_EQ(outcome(), "timedOut");
}

}  // namespace
}  // namespace marigold
