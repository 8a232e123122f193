#include <gtest/gtest.h>

#include "base/JsonDocument.h"
#include "claude/ClaudeCredentials.h"

namespace marigold {
namespace {

constexpr const char* login =
    R"({"claudeAiOauth":{"accessToken":"x","refreshToken":"y","expiresAt":1781455589763,)"
    R"("subscriptionType":"max"}})";

std::string withToken(const std::string& token, const std::string& rest = "") {
  return R"({"claudeAiOauth":{"accessToken":)" + token + rest + "}}";
}
// A JSON text of so many of this character.
std::string quoted(std::size_t length, const std::string& character) {
  std::string text = "\"";
  for (std::size_t i = 0; i < length; ++i) {
    text += character;
  }
  return text + "\"";
}
// A login of so many bytes.
std::string padded(std::size_t size) {
  const std::size_t other = withToken("\"x\"", R"(,"y":"")").size();
  return withToken("\"x\"", R"(,"y":)" + quoted(size - other, "z"));
}

TEST(ClaudeCredentials, NothingElseIsALogin) {
  const std::string whole = login;
  for (const std::string& good :
       {whole, whole + "\n", whole + "\r\n", whole + "\r", withToken(quoted(8192, "x")),
        withToken(quoted(8192, "\u00e4")), padded(131072), padded(131072) + "\r\n"}) {
    EXPECT_TRUE(decodeCredentialPayload(good)) << good.size();
  }
  for (const std::string& bad :
       {std::string(), std::string("\r\n"), " " + whole, whole + " ", whole + "\n\n",
        whole + "\n\r", "\t" + whole, padded(131073), withToken(quoted(8193, "x")),
        withToken("\"\""), withToken("1"), withToken("\"\\ud800\""),
        std::string(R"({"accessToken":"x"})"), std::string(R"({"claudeAiOauth":"x"})"),
        whole.substr(0, whole.size() - 1)}) {
    EXPECT_FALSE(decodeCredentialPayload(bad)) << bad.substr(0, 99);
  }
  EXPECT_EQ(ClaudeCredentials::decode({}).error(), "access token missing or out of bounds");
}

TEST(ClaudeCredentials, OneBadMemberCostsThatOnly) {
  const auto found = decodeCredentialPayload(login).value();
  EXPECT_EQ(found.claudeAiOauth.accessToken.expose(), "x");
  EXPECT_EQ(found.claudeAiOauth.subscriptionType, "max");
  EXPECT_EQ(found.expiresAt(), dateFromEpoch(1781455589.763));
  EXPECT_FALSE(found.isExpired(dateFromEpoch(1781455589.763)));
  EXPECT_TRUE(found.isExpired(dateFromEpoch(1781455589.764)));
  EXPECT_EQ(ClaudeCredentials::description(), "ClaudeCredentials(redacted)");

  const auto lenient =
      decodeCredentialPayload(withToken(R"("\u0041")", R"(,"expiresAt":"1","subscriptionType":)" +
                                                           quoted(65, "\u00e4")))
          .value();
  EXPECT_EQ(lenient.claudeAiOauth.accessToken.expose(), "A");
  EXPECT_FALSE(lenient.isExpired(distantFuture));
  EXPECT_EQ(lenient.claudeAiOauth.subscriptionType.value().size(), 128U);
  const auto odd = decodeCredentialPayload(withToken("\"x\"", R"(,"subscriptionType":1)"));
  EXPECT_EQ(odd.value().claudeAiOauth.subscriptionType, std::nullopt);
}

}  // namespace
}  // namespace marigold
