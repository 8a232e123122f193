#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/Time.h"

// What the status and the headers of an answer ask for.

namespace marigold {

/// What an answer's status asks for.
struct HTTPClassification {
  enum class Kind : std::uint8_t {
    throttled,     ///< 429
    serverError,   ///< anything else, redirects included: they are not followed
    ok,            ///< 200 to 299
    unauthorized,  ///< 401 and 403: the token was refused
  };
  Kind kind = Kind::ok;
  std::optional<std::chrono::seconds> retryAfter;  ///< of `throttled` and `serverError`

  bool operator==(const HTTPClassification&) const = default;
};

/// `retryAfter` is the text of the "Retry-After" header.
[[nodiscard]] HTTPClassification classify(int status, std::optional<std::string_view> retryAfter);

/// The wait that a "Retry-After" header asks for, at most 7200 s. An HTTP date gives nothing.
[[nodiscard]] std::optional<std::chrono::seconds> parseRetryAfter(
    std::optional<std::string_view> text);
/// The time that a unified reset header tells: from 10,000,000 on seconds since 1970, below that
/// seconds after `now`.
[[nodiscard]] std::optional<Date> parseUnifiedReset(std::optional<std::string_view> text, Date now);

}  // namespace marigold
