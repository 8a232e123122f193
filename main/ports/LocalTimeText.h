#pragma once

#include <string>

#include "Time.h"

namespace marigold {

/// Times in the user's own locale and time zone.
class LocalTimeText {
 public:
  LocalTimeText() = default;
  LocalTimeText(const LocalTimeText&) = delete;
  LocalTimeText& operator=(const LocalTimeText&) = delete;
  LocalTimeText(LocalTimeText&&) = delete;
  LocalTimeText& operator=(LocalTimeText&&) = delete;
  virtual ~LocalTimeText() = default;

  /// Abbreviated weekday, hour with abbreviated AM/PM marker where the locale has one, and minute:
  /// "Tue 3:05 PM".
  [[nodiscard]] virtual std::string weekdayAndTime(Date date) const = 0;
};

}  // namespace marigold
