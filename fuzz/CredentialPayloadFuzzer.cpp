// What a keychain item or credentials file holds decodes into a login within its bounds, or into
// nothing.

#include <string>

#include "Fuzzed.h"
#include "claude/ClaudeCredentials.h"

namespace marigold::fuzz {

void examine(std::string_view input) {
  const auto login = decodeCredentialPayload(input);
  require(!login || !decodeCredentialPayload(" " + std::string(input)));
  if (login) {
    using OAuth = ClaudeCredentials::OAuth;
    const OAuth& oauth = login->claudeAiOauth;
    require(!oauth.accessToken.isEmpty());
    require(oauth.accessToken.size() <= 4 * OAuth::maxAccessTokenLength);
    require(oauth.subscriptionType.value_or("").size() <= 4 * OAuth::maxSubscriptionTypeLength);
    require(!login->isExpired(distantPast));
  }
}

}  // namespace marigold::fuzz
