#include "linux/popover/SettingsPage.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include <QtGui/QPainter>
#include <QtWidgets/QStyle>
#include <QtWidgets/QVBoxLayout>

#include "linux/popover/Spoken.h"
#include "linux/system/QtPainter.h"
#include "popover/PopoverMetrics.h"

namespace marigold {

namespace {

constexpr double titleSize = metrics::sectionTitleSize;
constexpr double besideTitle = metrics::besideSectionTitle;
constexpr double belowTitle = metrics::belowSectionTitle;

}  // namespace

/// Rows on one ground, below their title.
class SettingsPage::Section final : public QWidget {
 public:
  Section(const Look& look, QWidget& parent)
      : QWidget(&parent), look_(look), layout_(new QVBoxLayout(this)) {
    speakAs(*this, QAccessible::Grouping);
    layout_->setContentsMargins(0, ground(), 0, 0);
    layout_->setSpacing(0);
  }

  void take(const SettingsSection& section) {
    taking_ = true;
    section_ = section;
    setAccessibleName(QString::fromStdString(section.title));
    const std::vector<SettingsRowWidget*> before = std::exchange(rows_, {});
    left_ = before;
    for (const SettingsRow& row : section.rows) {
      SettingsRowWidget& widget = rowWidget(row, 0);
      if (!row.details.empty() && !std::exchange(opened_, true)) {
        widget.setOpen(true);
      }
      if (widget.isOpen()) {
        for (const SettingsRow& detail : row.details) {
          rowWidget(detail, 1);
        }
      }
    }
    for (SettingsRowWidget* const row : std::exchange(left_, {})) {
      row->hide();
      row->deleteLater();  // it may be what is being used
    }
    if (rows_ != before) {
      stack();
    }
    taking_ = false;
    update();
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    const PopoverColors& colors = look_.colors();
    QPainter painter(this);
    if (!section_.title.empty()) {
      painter.setFont(interfaceFont(titleSize, QFont::DemiBold));
      painter.setPen(toQt(colors.secondary));
      const int inset = scaled(besideTitle);
      paintLine(painter, *this, {inset, 0, width() - 2 * inset, painter.fontMetrics().height()},
                QString::fromStdString(section_.title));
    }
    paintPanel(painter, QRectF(rect()).adjusted(0, layout_->contentsMargins().top(), 0, 0),
               scaledExactly(MarigoldTheme::cardRadius), colors.card, colors.cardEdge);
  }

 private:
  // Where the rows begin.
  static int ground() {
    return QFontMetrics(interfaceFont(titleSize, QFont::DemiBold)).height() + scaled(belowTitle);
  }

  SettingsRowWidget& rowWidget(const SettingsRow& row, int depth) {
    const auto known = std::ranges::find_if(left_, [&](const SettingsRowWidget* each) {
      return each->shown().key == row.key && each->suits(row);
    });
    if (known != left_.end()) {
      rows_.push_back(*known);
      left_.erase(known);
      rows_.back()->take(row);
    } else {
      rows_.push_back(new SettingsRowWidget(row, depth, look_, *this));
      rows_.back()->onOpened = [this] {
        if (!taking_) {
          take(SettingsSection(section_));
        }
      };
    }
    return *rows_.back();
  }

  void stack() {
    while (QLayoutItem* const item = layout_->takeAt(0)) {
      delete item;
    }
    for (SettingsRowWidget* const row : rows_) {
      layout_->addWidget(row);
      row->raise();
      row->setSeparated(row != rows_.front());
      row->setVisible(true);
    }
  }

  const Look& look_;
  SettingsSection section_;
  std::vector<SettingsRowWidget*> rows_;
  std::vector<SettingsRowWidget*> left_;  ///< while rows are taken over: those not yet
  bool taking_ = false;
  bool opened_ = false;  ///< the first row with details has been, by itself
  QVBoxLayout* layout_;
};

SettingsPage::SettingsPage(const Look& look, QWidget& parent)
    : QWidget(&parent), look_(look), layout_(new QVBoxLayout(this)) {
  speakAs(*this, QAccessible::Grouping);
  layout_->setContentsMargins(0, scaled(8), 0, 0);
  layout_->setSpacing(scaled(metrics::sectionGap));
}

void SettingsPage::take(const SettingsForm& form) {
  setAccessibleName(QString::fromStdString(form.title));
  while (sections_.size() > form.sections.size()) {
    delete sections_.back();
    sections_.pop_back();
  }
  for (std::size_t i = 0; i < form.sections.size(); ++i) {
    if (i == sections_.size()) {
      sections_.push_back(new Section(look_, *this));
      layout_->addWidget(sections_.back());
      sections_.back()->setVisible(true);
    }
    sections_[i]->take(form.sections[i]);
  }
}

}  // namespace marigold
