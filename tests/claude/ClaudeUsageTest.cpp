#include <gtest/gtest.h>

#include "base/JsonDocument.h"
#include "claude/ClaudeCredentials.h"
#include "claude/ClaudeUsage.h"
#include "claude/HTTPClassification.h"
#include "support/Told.h"

namespace marigold {
namespace {

using namespace std::chrono_literals;
using test::toldInFull;
using Verdict = ClaudePayloadVerdict;

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

TEST(ClaudeUsage, ClassifiesAStatus) {
  using Kind = HTTPClassification::Kind;
  for (const auto& [status, kind] :
       {std::pair(200, Kind::ok), std::pair(299, Kind::ok), std::pair(199, Kind::serverError),
        std::pair(302, Kind::serverError), std::pair(401, Kind::unauthorized),
        std::pair(402, Kind::serverError), std::pair(403, Kind::unauthorized),
        std::pair(429, Kind::throttled), std::pair(503, Kind::serverError)}) {
    const bool waits = kind == Kind::throttled || kind == Kind::serverError;
    EXPECT_EQ(classify(status, "30"),
              (HTTPClassification{kind, waits ? std::optional(30s) : std::nullopt}))
        << status;
  }
}

TEST(ClaudeUsage, ABadFieldCostsThatFieldOnly) {
  const auto scoped = [](const std::string& percent, const std::string& kind = "weekly_scoped",
                         const std::string& name = "M") {
    return R"({"kind":")" + kind + R"(","percent":)" + percent +
           R"(,"scope":{"model":{"display_name":")" + name + R"("}}})";
  };
  const std::string extra = R"({"extra_usage":{"is_enabled":true,"used_credits":)";
  const std::vector<std::tuple<std::string, Verdict, std::string>> cases = {
      {R"({"five_hour":{"utilization":10.0,"resets_at":"2027-01-15T08:01:40.000Z"},)"
       R"("seven_day":{"utilization":15.0,"resets_at":"2027-01-15T08:03:20Z"},)"
       R"("seven_day_opus":null,"seven_day_sonnet":{"utilization":1.0,"resets_at":null},)"
       R"("tangelo":null,"extra_usage":{"is_enabled":true,"monthly_limit":1000,)"
       R"("used_credits":266.0,"utilization":26.6,"currency":"USD"},"limits":[)" +
           scoped("42.5", "weekly_scoped", "Fable 5") + "," + scoped("null") + ",\"bogus\"," +
           R"({"kind":"weekly_scoped","percent":12.0,"scope":null},)" +
           scoped("99.0", "weekly_scoped", "SONNET") + "]}",
       Verdict::usable,
       "5h 10 until 1800000100, Weekly 15 until 1800000200, Sonnet 1, Fable 5 42.5, "
       "Extra usage 27%"},
      {"{}", Verdict::unrecognized, ""},
      {R"({"error":{"type":"x"}})", Verdict::unrecognized, ""},
      {R"({"cinder_cove":null})", Verdict::noActiveWindows, ""},
      {R"({"five_hour":[],"limits":{}})", Verdict::noActiveWindows, ""},
      {R"({"five_hour":{"utilization":null}})", Verdict::noActiveWindows, ""},
      {R"({"seven_day_opus":{"utilization":1e400}})", Verdict::rejectedValues, ""},
      {R"({"five_hour":{"utilization":1e400},"seven_day":{"utilization":"7"}})", Verdict::usable,
       "Weekly 7"},
      {R"({"five_hour":{"utilization":-0.5,"resets_at":1e999}})", Verdict::usable, "5h 0"},
      {"{\"limits\":[" + scoped("true") + "]}", Verdict::rejectedValues, ""},
      {"{\"limits\":[" + scoped("50", "Weekly_scoped") + "]}", Verdict::noActiveWindows, ""},
      {"{\"limits\":[" + scoped("50", "weekly_scoped", "") + "]}", Verdict::noActiveWindows, ""},
      {extra + "1}}", Verdict::noActiveWindows, "Extra usage on"},
      {extra + R"(1,"utilization":"100.9"}})", Verdict::noActiveWindows, "Extra usage 100%"},
      {extra + R"(1,"utilization":200}})", Verdict::noActiveWindows, "Extra usage on"},
      {extra + R"(0,"utilization":5}})", Verdict::noActiveWindows, ""},
      {R"({"extra_usage":{"is_enabled":1,"used_credits":5}})", Verdict::noActiveWindows, ""}};
  for (const auto& [body, verdict, full] : cases) {
    const auto usage = ClaudeUsage::decode(body).value();
    const ProviderSnapshot reading = usage.snapshot({}, {});
    EXPECT_EQ(toldInFull(reading), full) << body;
    EXPECT_EQ(
        claudePayloadVerdict(reading.isUsable(), usage.recognizedEnvelope, usage.rejectedValue()),
        verdict)
        << body;
  }
  EXPECT_EQ(toldInFull(ClaudeUsage::decode("{}")->snapshot({}, "team plus")), "Claude Team Plus");
  EXPECT_FALSE(ClaudeUsage::decode("[]"));
}

}  // namespace
}  // namespace marigold
