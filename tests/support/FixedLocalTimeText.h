#pragma once

#include <array>
#include <string>

#include "ports/LocalTimeText.h"

namespace marigold::test {

/// "Fri 13:05", in UTC.
class FixedLocalTimeText final : public LocalTimeText {
 public:
  [[nodiscard]] std::string weekdayAndTime(Date date) const override {
    static constexpr std::array weekdays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    const CalendarTime t = calendarTime(date);
    const std::chrono::sys_days day{std::chrono::year{t.year} / static_cast<int>(t.month) /
                                    static_cast<int>(t.day)};
    const std::chrono::weekday weekday{day};
    return std::string(weekdays.at(weekday.c_encoding())) + " " + isoText(date).substr(11, 5);
  }
};

}  // namespace marigold::test
