#include <string>
#include <vector>

#include "Floors.h"
#include "KeychainReader.h"
#include "Ratios.h"

namespace marigold::bench {
namespace {

// The largest login that is read: a token of full length beside members that are never decoded.
void interpretLogin(benchmark::State& state) {
  std::string text = R"({"claudeAiOauth":{"accessToken":")" +
                     std::string(ClaudeCredentials::OAuth::maxAccessTokenLength, 't') +
                     R"(","expiresAt":1781455589763,"subscriptionType":"max","scopes":[)";
  while (text.size() < KeychainReader::longestPayload - 100) {
    text += R"({"name":"user:inference","since":1781455589},)";
  }
  text += R"("x"]}})";
  const SecretCommandResult result{.stdoutBytes = Secret(text)};
  if (!KeychainReader::interpret(result)) {
    state.SkipWithError("no login");
    return;
  }
  std::vector<char> into(text.size());
  measureRatio(
      state, "interpreting a login of 128 KiB to a bare scan", 12.0,
      [&] { return bareScan(text, into); }, [&] { return KeychainReader::interpret(result); });
}
BENCHMARK(interpretLogin)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace marigold::bench
