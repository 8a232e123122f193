#include <string>
#include <vector>

#include "Floors.h"
#include "Ratios.h"
#include "claude/ClaudeCredentials.h"

namespace marigold::bench {
namespace {

// The largest login that is read: a token of full length beside members that are never decoded.
void decodeLogin(benchmark::State& state) {
  std::string text = R"({"claudeAiOauth":{"accessToken":")" +
                     std::string(ClaudeCredentials::OAuth::maxAccessTokenLength, 't') +
                     R"(","expiresAt":1781455589763,"subscriptionType":"max","scopes":[)";
  while (text.size() < longestCredentialPayload - 100) {
    text += R"({"name":"user:inference","since":1781455589},)";
  }
  text += R"("x"]}})";
  const Secret login{text};
  if (!decodeCredentialPayload(login.expose())) {
    state.SkipWithError("no login");
    return;
  }
  std::vector<char> into(text.size());
  measureRatio(
      state, "decoding a login of 128 KiB to a bare scan", 12.0,
      [&] { return bareScan(text, into); },
      [&] { return decodeCredentialPayload(login.expose()); });
}
BENCHMARK(decodeLogin)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace marigold::bench
