#pragma once

#include <array>
#include <utility>

namespace marigold::test {

/// A Friday's 15:13 as locales write it.
inline constexpr std::array<std::pair<const char*, const char*>, 3> fridayAfternoons{
    {{"en_US", "Fri 3:13\u202FPM"}, {"en_GB", "Fri 15:13"}, {"de_DE", "Fr., 15:13"}}};

}  // namespace marigold::test
