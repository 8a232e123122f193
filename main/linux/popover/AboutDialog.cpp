#include "linux/popover/AboutDialog.h"

#include <QtGui/QIcon>
#include <QtWidgets/QApplication>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QVBoxLayout>

#include "linux/popover/Look.h"

namespace marigold {

namespace {

constexpr int widthInLetters = 54;
constexpr double titleSize = 1.5;  // to the font of the text
constexpr double iconSize = 2.5;   // to the height of the title's lines

QLabel* addLine(QVBoxLayout& layout, const QString& text) {
  auto* const label = new QLabel(text);
  label->setTextFormat(Qt::PlainText);
  label->setAlignment(Qt::AlignHCenter);
  label->setWordWrap(true);
  layout.addWidget(label);
  return label;
}

}  // namespace

std::unique_ptr<QDialog> makeAboutDialog(const AboutPanel& about) {
  auto dialog = std::make_unique<QDialog>();
  const QString name = QString::fromStdString(about.name);
  dialog->setWindowTitle(QString::fromStdString(about.title));
  dialog->setAttribute(Qt::WA_QuitOnClose, false);
  const int letter = dialog->fontMetrics().averageCharWidth();
  auto* const layout = new QVBoxLayout(dialog.get());
  layout->setContentsMargins(4 * letter, 3 * letter, 4 * letter, 3 * letter);
  layout->setSpacing(2 * letter);

  const QFont font = interfaceFont(titleSize, QFont::DemiBold);
  const int side = qRound(QFontMetrics(font).height() * iconSize);
  addLine(*layout, {})
      ->setPixmap(QApplication::windowIcon().pixmap({side, side}, dialog->devicePixelRatioF()));
  addLine(*layout, name)->setFont(font);
  addLine(*layout, QString::fromStdString(about.version));
  for (const QString& paragraph : QString::fromStdString(about.credits).split(u'\n')) {
    addLine(*layout, paragraph);
  }

  auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Close);
  buttons->setCenterButtons(true);
  QObject::connect(buttons, &QDialogButtonBox::rejected, dialog.get(), &QDialog::reject);
  layout->addWidget(buttons);
  const int width = widthInLetters * letter;
  dialog->setFixedSize(width, layout->totalHeightForWidth(width));
  return dialog;
}

}  // namespace marigold
