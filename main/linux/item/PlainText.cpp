#include "linux/item/PlainText.h"

#include <QtGui/QTextDocument>

namespace marigold {

QString plainToolTip(const std::string& text) {
  const QString plain = QString::fromStdString(text);
  return Qt::mightBeRichText(plain) ? Qt::convertFromPlainText(plain) : plain;
}

}  // namespace marigold
