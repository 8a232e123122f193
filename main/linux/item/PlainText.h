#pragma once

#include <string>

#include <QtCore/QString>

namespace marigold {

/// A tooltip that shows `text` as it is, also where the toolkit would take it for marked-up text.
[[nodiscard]] QString plainToolTip(const std::string& text);

/// The same with a title above the text, which is left out when it says no more than the title.
[[nodiscard]] QString plainToolTip(const std::string& title, const std::string& text);

}  // namespace marigold
