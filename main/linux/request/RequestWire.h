#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/Secret.h"
#include "ports/HTTPTransport.h"

// What the program and its marigold-request say to each other: one request over standard input, one
// answer over standard output. The two may be of different releases while an update is under way,
// so a request names the form it has.

namespace marigold {

/// The system's proxy for HTTPS.
struct HTTPSProxy {
  std::string url;         ///< empty when there is none
  std::string exceptions;  ///< hosts that are reached without it, separated by commas

  bool operator==(const HTTPSProxy&) const = default;
};

/// All that a request takes.
struct RequestOrder {
  HTTPRequest request;
  HTTPSProxy proxy;
};

/// Bytes of a written request; one that takes more is not sent.
inline constexpr std::size_t longestRequest = 1UL << 16U;
/// Bytes of an answer's header that are read; one that has more is no answer.
inline constexpr std::size_t longestHeader = 1UL << 16U;

/// How marigold-request ends when it has no answer to write, as its exit status.
enum class NoAnswer : std::uint8_t {
  whatever = 1,  ///< none came, or the request could not be sent
  proxyUnknown,  ///< the proxy's address is none that is spoken to by HTTP
  proxyLogin,    ///< the proxy asks for a login, or for another one
  proxyRefusal,  ///< the proxy does not connect to the host
};

/// Nothing when a part of it cannot be written, such as a text with a line end in it.
[[nodiscard]] std::optional<Secret> encodeRequest(const HTTPRequest& request,
                                                  const HTTPSProxy& proxy);
/// Nothing unless `text` is one whole request.
[[nodiscard]] std::optional<RequestOrder> decodeRequest(std::string_view text);

[[nodiscard]] std::string encodeAnswer(const HTTPAnswer& answer);
/// Nothing unless `text` is one whole answer with a body of at most `longestBody` bytes.
[[nodiscard]] std::optional<HTTPAnswer> decodeAnswer(std::string_view text,
                                                     std::size_t longestBody);

}  // namespace marigold
