#pragma once

#include <string>

#include "base/Pinned.h"
#include "base/Time.h"

namespace marigold {

/// Times in the user's own locale and time zone.
class LocalTimeText : public Pinned {
 public:
  /// Abbreviated weekday, hour with abbreviated AM/PM marker where the locale has one, and minute:
  /// "Tue 3:05 PM".
  [[nodiscard]] virtual std::string weekdayAndTime(Date date) const = 0;
};

}  // namespace marigold
