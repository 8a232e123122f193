// What the security tool prints decodes into a login within its bounds, or into nothing.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "KeychainReader.h"

namespace {

void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace marigold;
  const std::span input(data, size);
  const std::string text(input.begin(), input.end());
  const auto login = KeychainReader::decodeCredentialPayload(text);
  require(!login || !KeychainReader::decodeCredentialPayload(" " + text));
  if (login) {
    using OAuth = ClaudeCredentials::OAuth;
    const OAuth& oauth = login->claudeAiOauth;
    require(!oauth.accessToken.isEmpty());
    require(oauth.accessToken.size() <= 4 * OAuth::maxAccessTokenLength);
    require(oauth.subscriptionType.value_or("").size() <= 4 * OAuth::maxSubscriptionTypeLength);
    require(!login->isExpired(distantPast));
  }
  return 0;
}
