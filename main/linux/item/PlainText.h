#pragma once

#include <string>

#include <QtCore/QString>

namespace marigold {

/// A tooltip that shows `text` as it is, also where the toolkit would take it for marked-up text.
[[nodiscard]] QString plainToolTip(const std::string& text);

}  // namespace marigold
