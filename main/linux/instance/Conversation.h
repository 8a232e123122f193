#pragma once

#include <chrono>
#include <cstdint>
#include <expected>
#include <functional>
#include <string>
#include <string_view>

#include "base/OwnedDescriptor.h"

// What a program says to the instance that runs, and hears of it. All of it blocks.

namespace marigold {

using Milliseconds = std::chrono::duration<int, std::milli>;
inline constexpr Milliseconds forEver{-1};

/// Why a conversation is over.
enum class Ending : std::uint8_t {
  theirs,   ///< the other end has said everything, or is gone
  silence,  ///< it took longer over the next word than it was given
  ours,     ///< nobody wants to hear more
};

/// Sends a request, a line without its end; whether it went out.
[[nodiscard]] bool say(const OwnedDescriptor& socket, std::string_view request);
/// Hands on what comes until `hear` is false or, while `forOutput`, nobody reads standard output.
[[nodiscard]] Ending listen(const OwnedDescriptor& socket, Milliseconds patience, bool forOutput,
                            const std::function<bool(std::string_view)>& hear);
/// The whole answer to a request.
[[nodiscard]] std::expected<std::string, Ending> ask(const OwnedDescriptor& socket,
                                                     std::string_view request,
                                                     Milliseconds patience);

}  // namespace marigold
