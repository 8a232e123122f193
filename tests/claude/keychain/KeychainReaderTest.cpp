#include <gmock/gmock.h>

#include "claude/keychain/KeychainReader.h"
#include "claude/keychain/PropertyList.h"

namespace marigold {
namespace {

using Error = KeychainReadError;
using Kind = Error::Kind;
using Reader = KeychainReader;

constexpr const char* login =
    R"({"claudeAiOauth":{"accessToken":"x","refreshToken":"y","expiresAt":1781455589763,)"
    R"("subscriptionType":"max"}})";

using Applications = std::optional<std::vector<std::string>>;

KeychainRule decryptRule(const Applications& applications, std::uint16_t promptSelector = 0) {
  return {.decrypt = true, .contents = {{applications, {}, promptSelector}}};
}
KeychainRule partitionRule(const std::optional<std::string>& description) {
  return {.partitionID = true, .contents = {{{}, description}}};
}

constexpr const char* tool = "/usr/bin/security";

// A keychain that holds one login which the security tool may read.
class ScriptedKeychain final : public Keychain {
 public:
  template <class Value>
  using Result = std::expected<Value, KeychainStatus>;

  Result<std::vector<KeychainMatch>> matches{{{.account = "me", .item = std::make_shared<int>()}}};
  Result<std::string> path = "/dev/null";
  Result<std::uint32_t> status = 7;
  std::optional<std::vector<KeychainRule>> rules{{decryptRule({{tool}})}};
  bool interactionAllowed = true;

  void setUserInteractionAllowed(bool allowed) override { interactionAllowed = allowed; }
  Result<std::vector<KeychainMatch>> search(std::string_view service) override {
    EXPECT_EQ(service, "Claude Code-credentials");
    return quietly(matches);
  }
  Result<std::string> pathOfKeychain(const KeychainItem&) override { return quietly(path); }
  Result<std::uint32_t> statusOfKeychain(const KeychainItem&) override { return quietly(status); }
  std::optional<std::vector<KeychainRule>> accessRules(const KeychainItem&) override {
    return quietly(rules);
  }

 private:
  template <class Value>
  Value quietly(const Value& value) const {
    EXPECT_FALSE(interactionAllowed);
    return value;
  }
};

// A security tool that prints that login.
class ScriptedRunner final : public SecretCommandRunning {
 public:
  std::vector<std::string> seen;

  SecretCommandResult run(const std::vector<std::string>& arguments) override {
    seen = arguments;
    return {.stdoutBytes = Secret(login)};
  }
};

constexpr const char* partitionPlist =
    R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>Partitions</key>)"
    R"(<array><string>apple-tool:</string><string>teamid:A&amp;B</string><string/></array></dict></plist>)";

std::string outcomeOf(const ClaudeLogin& outcome) {
  return outcome ? "read" : outcome.error().description();
}

std::string hex(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += "0123456789abcdef"[value / 16];
    text += "0123456789ABCDEF"[value % 16];
  }
  return text;
}

TEST(KeychainReader, RunsTheToolOnlyWhereTheSystemWillNotAsk) {
  const KeychainRule granting = decryptRule({{tool}});
  const KeychainRule open = decryptRule({});
  const KeychainRule prompting = decryptRule({}, 1);
  const KeychainRule unreadable{.decrypt = true};
  const KeychainRule partition = partitionRule(partitionPlist);
  const KeychainRule inHexadecimal = partitionRule(hex(partitionPlist));
  const std::string otherTool = std::string(tool) + "2";
  std::string others = partitionPlist;
  others.replace(others.find("tool:"), 5, "tool");
  struct Case {
    const char* what;
    std::function<void(ScriptedKeychain&)> change;
    std::string outcome;
  };
  const auto ruled = [](const std::vector<KeychainRule>& rules) {
    return [rules](ScriptedKeychain& keychain) { keychain.rules = rules; };
  };
  const std::vector<Case> cases = {
      {"as it should be", [](auto&) {}, "read"},
      {"none", [](auto& k) { k.matches = std::unexpected(-25300); }, "notInstalled"},
      {"failed", [](auto& k) { k.matches = std::unexpected(-25293); }, "indeterminate(-25293)"},
      {"not a list", [](auto& k) { k.matches = std::unexpected(0); }, "indeterminate(0)"},
      {"empty list", [](auto& k) { k.matches->clear(); }, "ambiguous(0)"},
      {"two", [](auto& k) { k.matches->push_back(k.matches->front()); }, "ambiguous(2)"},
      {"no item", [](auto& k) { k.matches->front().item = {}; }, "indeterminate(-25304)"},
      {"no keychain", [](auto& k) { k.path = std::unexpected(-50); }, "indeterminate(-50)"},
      {"relative", [](auto& k) { k.path = "../../dev/null"; }, "indeterminate(-25294)"},
      {"no file", [](auto& k) { k.path = "/nonexistent"; }, "indeterminate(-25294)"},
      {"no status", [](auto& k) { k.status = std::unexpected(-61); }, "indeterminate(-61)"},
      {"locked", [](auto& k) { k.status = 6; }, "locked"},
      {"no account", [](auto& k) { k.matches->front().account = {}; }, "indeterminate(-25304)"},
      {"empty account", [](auto& k) { k.matches->front().account = ""; }, "indeterminate(-25304)"},
      {"no access", [](auto& k) { k.rules = {}; }, "indeterminate(-25240)"},
      {"no rules", ruled({}), "indeterminate(-25240)"},
      {"none to decrypt", ruled({partition}), "indeterminate(-25240)"},
      {"padded", ruled({decryptRule({{"/a", tool + std::string(3, '\0')}})}), "read"},
      {"passphrase", ruled({decryptRule({{tool}}, 0x11)}), "unauthorized"},
      {"other bits", ruled({decryptRule({{tool}}, 0x10)}), "read"},
      {"others", ruled({decryptRule({{"", otherTool}})}), "unauthorized"},
      {"every application", ruled({open}), "unauthorized"},
      {"inconclusive ones", ruled({unreadable, decryptRule({{"/a"}}, 1), granting}), "read"},
      {"a prompt first", ruled({prompting, granting}), "unauthorized"},
      {"a grant first", ruled({granting, prompting}), "read"},
      {"unreadable", ruled({unreadable}), "unauthorized"},
      {"partition", ruled({partition, granting}), "read"},
      {"in hexadecimal", ruled({granting, inHexadecimal}), "read"},
      {"without tools", ruled({granting, partitionRule(hex(others))}), "unauthorized"},
      {"untrusted anyway", ruled({open, partitionRule("?")}), "unauthorized"},
      {"no description", ruled({granting, partitionRule({})}), "indeterminate(-25240)"},
      {"an empty one", ruled({granting, partitionRule("")}), "indeterminate(-25240)"},
      {"first counts", ruled({granting, {.partitionID = true}, partition}),
       "indeterminate(-25240)"}};
  for (const auto& [what, change, outcome] : cases) {
    ScriptedKeychain keychain;
    change(keychain);
    ScriptedRunner runner;
    EXPECT_EQ(outcomeOf(Reader::readClaude(keychain, runner)), outcome) << what;
    EXPECT_TRUE(keychain.interactionAllowed) << what;
    const std::vector<std::string> arguments{
        "find-generic-password", "-s", "Claude Code-credentials", "-a", "me", "-w", "/dev/null"};
    EXPECT_EQ(runner.seen, outcome == "read" ? arguments : std::vector<std::string>()) << what;
  }
  EXPECT_EQ(Reader::preflightVerdict(0, false, {}, {}, {}).error().kind, Kind::notInstalled);
  EXPECT_EQ(Reader::preflightVerdict(2, false, {}, {}, {}).error().kind, Kind::ambiguous);
  EXPECT_EQ(Reader::preflightVerdict(1, true, ACLDecision::trusted, "me", "a").error().payload,
            -25304);
}

TEST(KeychainReader, ReadsPartitionsFromPropertyListsOnly) {
  const auto found = [](std::string_view description) {
    return Reader::partitionFinding(std::string(description)).list;
  };
  const std::vector<std::string> list{"apple-tool:", "teamid:A&B", ""};
  EXPECT_EQ(found(partitionPlist), list);
  EXPECT_EQ(found(hex(partitionPlist)), list);
  // The forms of {"Partitions": ["apple-tool:", "apple-tool:"]}, whose texts are one value, and of
  // {"Partitions": ["Partitions"], "a": ...}, whose lists are.
  EXPECT_EQ(
      found("62706c6973743030d101025a506172746974696f6e73af100203035b6170706c652d746f6f6c3a0008"
            "000b0016001b0000000000000201000000000000000400000000000000000000000000000027"),
      std::vector<std::string>(2, "apple-tool:"));
  const std::string sharing =
      "62706c6973743030d2010203035a506172746974696f6e735161a101080d181a0000000000000101"
      "00000000000000040000000000000000000000000000001c";
  const std::string endless =  // of so many values, each told in no bytes
      "62706c69737430300000000000000001ffffffffffffffff00000000000000000000000000000008";
  const std::string inDictionary = "<plist><dict><key>Partitions</key>";
  for (const std::string& other :
       {sharing, sharing.substr(0, 80), endless, hex("apple-tool:"), hex(partitionPlist) + "0g",
        std::string("<plist><array><string>apple-tool:</string></array></plist>"),
        inDictionary + "<string>apple-tool:</string></dict></plist>",
        inDictionary + "<array><string>apple-tool:</string><true/></array></dict></plist>",
        std::string("{Partitions = (\"apple-tool:\");}"),
        partitionPlist + std::string(PropertyList::largest, ' ')}) {
    EXPECT_EQ(Reader::partitionFinding(other).kind, PartitionFinding::Kind::unreadable) << other;
  }
  EXPECT_EQ(Reader::hexDecoded("00aFfA"), std::string("\0\xAF\xFA", 3));
}

TEST(KeychainReader, InterpretsWhatTheToolDid) {
  // The exit status, whether the launch failed, it timed out or overflowed, the outcome.
  using Row = std::tuple<int, bool, bool, bool, const char*>;
  for (const auto& [status, failed, timedOut, overflowed, outcome] :
       {Row(44, true, true, true, "launchFailed"), Row(44, false, true, true, "timedOut"),
        Row(44, false, false, true, "overflow"), Row(44, false, false, false, "notInstalled"),
        Row(-1, false, false, false, "exitStatus(-1)"), Row(0, false, false, false, "decode")}) {
    EXPECT_EQ(outcomeOf(Reader::interpret({.status = status,
                                           .stdoutBytes = Secret(status == 0 ? "" : login),
                                           .timedOut = timedOut,
                                           .overflowed = overflowed,
                                           .launchFailed = failed})),
              outcome);
  }
}

TEST(SecuritySecretRunner, SeesTwoVariables) {
  const std::atomic<bool> stop = false;
  SecuritySecretRunner runner({.home = "/u", .environment = {{"PATH", "/x"}}}, stop);
  EXPECT_THAT(
      runner.childEnvironment(),
      testing::ElementsAre(testing::Pair("HOME", "/u"), testing::Pair("PATH", "/usr/bin:/bin")));
  EXPECT_EQ(runner.run({"help"}).launchFailed, ::access(runner.executablePath, X_OK) != 0);
}

}  // namespace
}  // namespace marigold
