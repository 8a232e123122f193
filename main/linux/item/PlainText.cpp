#include "linux/item/PlainText.h"

#include <QtGui/QTextDocument>

namespace marigold {

QString plainToolTip(const std::string& text) {
  const QString plain = QString::fromStdString(text);
  return Qt::mightBeRichText(plain) ? Qt::convertFromPlainText(plain) : plain;
}

QString plainToolTip(const std::string& title, const std::string& text) {
  if (text == title) {
    return plainToolTip(title);
  }
  return QStringLiteral("<p style='white-space:pre'><b>%1</b>\n%2</p>")
      .arg(QString::fromStdString(title).toHtmlEscaped(),
           QString::fromStdString(text).toHtmlEscaped());
}

}  // namespace marigold
