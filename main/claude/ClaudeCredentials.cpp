#include "claude/ClaudeCredentials.h"

#include <utility>

#include "base/AsciiText.h"
#include "base/JsonDocument.h"

namespace marigold {

namespace {

bool beginsCharacter(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
}

// Of the first `count` characters, in bytes.
std::size_t lengthOf(std::size_t count, std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && (!beginsCharacter(text[length]) || count-- > 0)) {
    ++length;
  }
  return length;
}

}  // namespace

std::string KeychainReadError::description() const {
  const std::string text(rawValue(kind));
  return kind <= Kind::exitStatus ? text + "(" + std::to_string(payload) + ")" : text;
}

std::expected<ClaudeCredentials, std::string_view> ClaudeCredentials::decode(JsonValue root) {
  const JsonValue oauth = root["claudeAiOauth"];
  auto token = oauth["accessToken"].secret();
  if (!token || token->isEmpty() ||
      lengthOf(OAuth::maxAccessTokenLength, token->expose()) < token->size()) {
    return std::unexpected("access token missing or out of bounds");
  }
  auto subscription = oauth["subscriptionType"].text();
  if (subscription) {
    subscription->resize(lengthOf(OAuth::maxSubscriptionTypeLength, *subscription));
  }
  return ClaudeCredentials{.claudeAiOauth = {.accessToken = *std::move(token),
                                             .expiresAtMillis = oauth["expiresAt"].number(),
                                             .subscriptionType = std::move(subscription)}};
}

std::optional<ClaudeCredentials> decodeCredentialPayload(std::string_view bytes) {
  for (const char lineEnd : {'\n', '\r'}) {
    bytes.remove_suffix(bytes.ends_with(lineEnd) ? 1 : 0);
  }
  if (bytes.empty() || bytes.size() > longestCredentialPayload || trimmed(bytes) != bytes) {
    return std::nullopt;
  }
  const auto document = JsonDocument::parseSecretObject(bytes);
  if (!document) {
    return std::nullopt;
  }
  auto credentials = ClaudeCredentials::decode(document->root());
  return credentials ? std::optional(*std::move(credentials)) : std::nullopt;
}

}  // namespace marigold
