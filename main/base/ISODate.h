#pragma once

#include <optional>
#include <string_view>

#include "base/Time.h"

namespace marigold {

/// ISO 8601 internet date-times: "2026-06-12T13:40:42Z" or with an offset such as "+02:00".
struct ISODate {
  /// With fractional seconds (any number of digits).
  [[nodiscard]] static std::optional<Date> withFrac(std::string_view text);
  /// Without.
  [[nodiscard]] static std::optional<Date> plain(std::string_view text);
  /// `withFrac`, else `plain`; absent and empty texts give no date.
  [[nodiscard]] static std::optional<Date> parse(std::optional<std::string_view> text);
};

}  // namespace marigold
