#pragma once

#include <string>

#include <QtCore/QString>
#include <QtGui/QTextDocument>

namespace marigold {

/// A tooltip that shows `text` as it is, also where the toolkit would take it for marked-up text.
[[nodiscard]] inline QString plainToolTip(const std::string& text) {
  const QString plain = QString::fromStdString(text);
  return Qt::mightBeRichText(plain) ? Qt::convertFromPlainText(plain) : plain;
}

}  // namespace marigold
