#pragma once

#include <string>
#include <utility>
#include <vector>

namespace marigold::test {

/// A Friday's 15:13 as locales write it.
inline const std::vector<std::pair<std::string, std::string>> fridayAfternoons{
    {"en_US", "Fri 3:13\u202FPM"}, {"en_GB", "Fri 15:13"}, {"de_DE", "Fr., 15:13"}};

}  // namespace marigold::test
