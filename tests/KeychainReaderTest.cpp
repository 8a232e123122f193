#include <functional>

#include <gtest/gtest.h>

#include "KeychainReader.h"
#include "PropertyList.h"
#include "support/ScriptedKeychain.h"

namespace marigold {
namespace {

using Error = KeychainReadError;
using Kind = Error::Kind;
using Reader = KeychainReader;
using test::decryptRule;
using test::login;
using test::partitionRule;
using test::ScriptedKeychain;
using test::ScriptedRunner;
using test::tool;

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
  EXPECT_EQ(found("62706c6973743030d101025a506172746974696f6e73af100203035b6170706c652d746f6f6c3a08"
                  "0b161b0000000000000101000000000000000400000000000000000000000000000027"),
            std::vector<std::string>(2, "apple-tool:"));
  const std::string sharing =
      "62706c6973743030d2010203035a506172746974696f6e735161a101080d181a0000000000000101"
      "00000000000000040000000000000000000000000000001c";
  const std::string inDictionary = "<plist><dict><key>Partitions</key>";
  for (const std::string& other :
       {sharing, sharing.substr(0, 80), hex("apple-tool:"), hex(partitionPlist) + "0g",
        std::string("<plist><array><string>apple-tool:</string></array></plist>"),
        inDictionary + "<string>apple-tool:</string></dict></plist>",
        inDictionary + "<array><string>apple-tool:</string><true/></array></dict></plist>",
        std::string(PropertyList::largest, ' ') + partitionPlist}) {
    EXPECT_EQ(Reader::partitionFinding(other).kind, PartitionFinding::Kind::unreadable) << other;
  }
  EXPECT_EQ(Reader::hexDecoded("00aFfA"), std::string("\0\xAF\xFA", 3));
}

TEST(KeychainReader, InterpretsWhatTheToolDid) {
  const auto outcome = [](SecretCommandResult result) {
    return outcomeOf(Reader::interpret(result));
  };
  EXPECT_EQ(outcome({.status = 44, .timedOut = true, .overflowed = true, .launchFailed = true}),
            "launchFailed");
  EXPECT_EQ(outcome({.status = 44, .timedOut = true, .overflowed = true}), "timedOut");
  EXPECT_EQ(outcome({.status = 44, .overflowed = true}), "overflow");
  EXPECT_EQ(outcome({.status = 44, .stdoutBytes = Secret(login)}), "notInstalled");
  EXPECT_EQ(outcome({.status = 51, .stdoutBytes = Secret(login)}), "exitStatus(51)");
  EXPECT_EQ(outcome({.status = -1, .stdoutBytes = Secret(login)}), "exitStatus(-1)");
  EXPECT_EQ(outcome({.stdoutBytes = Secret("")}), "decode");
  EXPECT_EQ(outcome({.stdoutBytes = Secret(login)}), "read");
}

TEST(KeychainReader, DecodesNothingButALogin) {
  const auto withToken = [](const std::string& token, const std::string& rest = "") {
    return R"({"claudeAiOauth":{"accessToken":)" + token + rest + "}}";
  };
  const auto quoted = [](std::size_t length, const char* character) {
    std::string text = "\"";
    for (std::size_t i = 0; i < length; ++i) {
      text += character;
    }
    return text + "\"";
  };
  const std::string whole = login;
  const auto padded = [&](std::size_t size) {
    return withToken("\"x\"",
                     R"(,"y":)" + quoted(size - withToken("\"x\"", R"(,"y":"")").size(), "z"));
  };
  for (const std::string& good :
       {whole, whole + "\n", whole + "\r\n", whole + "\r", withToken(quoted(8192, "x")),
        withToken(quoted(8192, "\u00e4")), padded(131072), padded(131072) + "\r\n"}) {
    EXPECT_TRUE(Reader::decodeCredentialPayload(good)) << good.size();
  }
  for (const std::string& bad :
       {std::string(), std::string("\r\n"), " " + whole, whole + " ", whole + "\n\n",
        whole + "\n\r", "\t" + whole, padded(131073), withToken(quoted(8193, "x")),
        withToken("\"\""), withToken("1"), withToken("null"), withToken("\"\\ud800\""),
        std::string("[]"), std::string("{}"), std::string(R"({"accessToken":"x"})"),
        std::string(R"({"claudeAiOauth":{}})"), std::string(R"({"claudeAiOauth":"x"})"),
        whole.substr(0, whole.size() - 1)}) {
    EXPECT_FALSE(Reader::decodeCredentialPayload(bad)) << bad.substr(0, 99);
  }

  const auto found = Reader::decodeCredentialPayload(login).value();
  EXPECT_EQ(found.claudeAiOauth.accessToken.expose(), "x");
  EXPECT_EQ(found.claudeAiOauth.subscriptionType, "max");
  EXPECT_EQ(found.expiresAt(), dateFromEpoch(1781455589.763));
  EXPECT_FALSE(found.isExpired(dateFromEpoch(1781455589.763)));
  EXPECT_TRUE(found.isExpired(dateFromEpoch(1781455589.764)));
  EXPECT_EQ(ClaudeCredentials::description(), "ClaudeCredentials(redacted)");

  const auto lenient = Reader::decodeCredentialPayload(
                           withToken(R"("\u0041")", R"(,"expiresAt":"1","subscriptionType":)" +
                                                        quoted(65, "\u00e4")))
                           .value();
  EXPECT_EQ(lenient.claudeAiOauth.accessToken.expose(), "A");
  EXPECT_FALSE(lenient.isExpired(distantFuture));
  EXPECT_EQ(lenient.claudeAiOauth.subscriptionType.value().size(), 128U);
  EXPECT_EQ(Reader::decodeCredentialPayload(withToken("\"x\"", R"(,"subscriptionType":1)"))
                ->claudeAiOauth.subscriptionType,
            std::nullopt);
}

}  // namespace
}  // namespace marigold
