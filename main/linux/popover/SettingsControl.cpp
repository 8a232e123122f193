#include "linux/popover/SettingsControl.h"

#include <algorithm>
#include <utility>
#include <variant>
#include <vector>

#include <QtGui/QPainter>
#include <QtWidgets/QButtonGroup>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QStyle>

#include "linux/popover/Controls.h"
#include "linux/popover/Spoken.h"
#include "linux/system/QtPainter.h"

namespace marigold {

namespace {

void name(QWidget& widget, const SettingsRow& row) {
  widget.setAccessibleName(QString::fromStdString(row.title));
  widget.setAccessibleDescription(QString::fromStdString(row.explanation));
}

QHBoxLayout& line(QWidget& widget, int spacing = 0) {
  auto* const layout = new QHBoxLayout(&widget);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(spacing);
  return *layout;
}

class SwitchControl final : public SettingsControl {
 public:
  SwitchControl(const Look& look, QWidget& parent, const Use& use)
      : SettingsControl(&parent), switch_(new Switch(look, *this)) {
    line(*this).addWidget(switch_);
    connect(switch_, &QCheckBox::toggled, this, [this, use](bool on) {
      if (!showing_) {
        use(on ? 1 : 0);
      }
    });
  }

  void take(const SettingsRow& row) override {
    name(*switch_, row);
    showing_ = true;
    switch_->setChecked(std::get<SettingsSwitch>(row.control).on);
    showing_ = false;
  }

  void useByText() override {
    if (switch_->isEnabled()) {
      switch_->click();
    }
  }

 private:
  Switch* switch_;
  bool showing_ = false;
};

class MenuControl final : public SettingsControl {
 public:
  MenuControl(const Look& look, QWidget& parent, const Use& use)
      : SettingsControl(&parent), menu_(new MenuChoice(look, *this)) {
    speakAs(*this, QAccessible::Grouping);  // for the menu is spoken as what is chosen in it
    line(*this).addWidget(menu_);
    connect(menu_, &QComboBox::activated, this, use);
  }

  void take(const SettingsRow& row) override {
    const auto& choice = std::get<SettingsChoice>(row.control);
    name(*this, row);
    QStringList titles;
    for (const SettingsOption& option : choice.options) {
      titles.append(QString::fromStdString(option.title));
    }
    if (titles != titles_) {
      titles_ = titles;
      menu_->clear();
      menu_->addItems(titles_);
    }
    menu_->setCurrentIndex(choice.selected);
    menu_->updateGeometry();
  }

 private:
  MenuChoice* menu_;
  QStringList titles_;
};

/// Segments or swatches.
class OptionsControl final : public SettingsControl {
 public:
  OptionsControl(bool swatches, const Look& look, QWidget& parent, Use use)
      : SettingsControl(&parent),
        look_(look),
        swatches_(swatches),
        group_(new QButtonGroup(this)),
        use_(std::move(use)) {
    speakAs(*this, QAccessible::Grouping);
    auto& layout = line(*this);
    const int margin = swatches ? 0 : scaled(1);
    layout.setContentsMargins(margin, 0, margin, 0);
    connect(group_, &QButtonGroup::idToggled, this, [this](int id, bool on) {
      if (on && !showing_) {
        // After the toolkit has led the keyboard to the option that was chosen.
        QMetaObject::invokeMethod(this, [this] { keepFocus(); }, Qt::QueuedConnection);
        use_(id);
      }
    });
  }

  void take(const SettingsRow& row) override {
    const auto& choice = std::get<SettingsChoice>(row.control);
    name(*this, row);
    showing_ = true;
    while (options_.size() > choice.options.size()) {
      delete options_.back();
      options_.pop_back();
    }
    for (std::size_t i = 0; i < choice.options.size(); ++i) {
      const SettingsOption& option = choice.options[i];
      const QString title = QString::fromStdString(option.title);
      if (i == options_.size()) {
        options_.push_back(new OptionButton(swatches_, look_, *this));
        group_->addButton(options_.back(), static_cast<int>(i));
        layout()->addWidget(options_.back());
      }
      OptionButton& button = *options_[i];
      button.setColor(option.color);
      if (swatches_) {
        button.setAccessibleName(title);
        button.setToolTip(title);
      } else if (button.text() != title) {
        button.setText(title);
      }
    }
    if (QAbstractButton* const selected = group_->button(choice.selected)) {
      selected->setChecked(true);
    }
    // Tab leads to the one that is checked, arrows from there.
    for (OptionButton* const option : options_) {
      option->setFocusPolicy(option->isChecked() ? Qt::StrongFocus : Qt::ClickFocus);
    }
    showing_ = false;
  }

  [[nodiscard]] int emptyEnd() const override { return swatches_ ? scaled(7) : 0; }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    if (!swatches_) {
      QPainter painter(this);
      const double inset = scaledExactly(1);
      paintPanel(painter, QRectF(rect()).adjusted(0, inset, 0, -inset), scaledExactly(7),
                 look_.colors().track,
                 look_.colors().barOutline ? look_.colors().controlEdge : Color{.opacity = 0});
    }
  }

 private:
  // With the option that is checked, should the one chosen not have been taken.
  void keepFocus() {
    if (std::ranges::any_of(options_, &QWidget::hasFocus)) {
      group_->checkedButton()->setFocus(Qt::OtherFocusReason);
    }
  }

  const Look& look_;
  bool swatches_;
  QButtonGroup* group_;
  Use use_;
  std::vector<OptionButton*> options_;
  bool showing_ = false;
};

class MovesControl final : public SettingsControl {
 public:
  MovesControl(const Look& look, QWidget& parent, const Use& use)
      : SettingsControl(&parent),
        up_(new GlyphButton(Glyph::arrowUp, look, *this)),
        down_(new GlyphButton(Glyph::arrowDown, look, *this)) {
    speakAs(*this, QAccessible::Grouping);
    auto& layout = line(*this, scaled(6));
    for (const auto& [button, move] :
         {std::pair{up_, SettingsMoves::Move::up}, std::pair{down_, SettingsMoves::Move::down}}) {
      button->setFramed(true);
      layout.addWidget(button);
      connect(button, &QPushButton::clicked, this,
              [use, choice = static_cast<int>(move)] { use(choice); });
    }
  }

  void take(const SettingsRow& row) override {
    const auto& moves = std::get<SettingsMoves>(row.control);
    name(*this, row);
    up_->setName(moves.up);
    down_->setName(moves.down);
    // At the end of the way the focus stays with the pair.
    const bool focused = up_->hasFocus() || down_->hasFocus();
    up_->setEnabled(moves.canMoveUp);
    down_->setEnabled(moves.canMoveDown);
    if (focused && !up_->hasFocus() && !down_->hasFocus()) {
      (moves.canMoveUp ? up_ : down_)->setFocus(Qt::OtherFocusReason);
    }
  }

 private:
  GlyphButton* up_;
  GlyphButton* down_;
};

class ButtonControl final : public SettingsControl {
 public:
  ButtonControl(const Look& look, QWidget& parent, const Use& use)
      : SettingsControl(&parent), button_(new TitleButton(look, *this)) {
    speakAs(*this, QAccessible::Grouping);
    line(*this).addWidget(button_);
    connect(button_, &QPushButton::clicked, this, [use] { use(0); });
  }

  void take(const SettingsRow& row) override {
    name(*this, row);
    button_->setText(QString::fromStdString(std::get<SettingsButton>(row.control).title));
  }

 private:
  TitleButton* button_;
};

/// A row that is a button itself.
class RowButton final : public PaintedButton<QPushButton> {
 public:
  RowButton(const Look& look, QWidget& parent) : PaintedButton(look, parent) {
    setFont(interfaceFont());
  }

  void setLeadsOn(bool leadsOn) {
    leadsOn_ = leadsOn;
    update();
  }

  [[nodiscard]] QSize sizeHint() const override {
    return {fontMetrics().horizontalAdvance(text()), scaled(35)};
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    const double inset = scaledExactly(3);
    const QRectF box = QRectF(rect()).adjusted(inset, inset, -inset, -inset);
    const double radius = scaledExactly(10);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (underMouse() || isDown()) {
      painter.setPen(Qt::NoPen);
      painter.setBrush(toQt(look().colors().hover));
      painter.drawRoundedRect(box, radius, radius);
    }
    const QRect line = rect().adjusted(scaled(14), 0, -scaled(14), 0);
    painter.setPen(toQt(look().colors().text));
    paintLine(painter, *this, line, text());
    if (leadsOn_) {
      const QRect end(line.right() - scaled(4), 0, scaled(5), height());
      paintGlyph(painter, Glyph::chevronForward, QStyle::visualRect(layoutDirection(), rect(), end),
                 toQt(look().colors().secondary), isRightToLeft());
    }
    paintFocusRing(painter, *this, box, radius, look());
  }

 private:
  bool leadsOn_ = false;
};

class RowButtonControl final : public SettingsControl {
 public:
  RowButtonControl(const Look& look, QWidget& parent, const Use& use)
      : SettingsControl(&parent), button_(new RowButton(look, *this)) {
    line(*this).addWidget(button_);
    button_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    connect(button_, &QPushButton::clicked, this, [use] { use(0); });
  }

  void take(const SettingsRow& row) override {
    button_->setText(QString::fromStdString(row.title));
    button_->setLeadsOn(std::get<SettingsButton>(row.control).leadsOn);
    button_->setAccessibleDescription(QString::fromStdString(row.explanation));
  }
  [[nodiscard]] bool fillsRow() const override { return true; }

 private:
  RowButton* button_;
};

class NoteControl final : public SettingsControl {
 public:
  explicit NoteControl(QWidget& parent) : SettingsControl(&parent) {
    speakAs(*this, QAccessible::StaticText);
  }

  void take(const SettingsRow& row) override { name(*this, row); }
};

}  // namespace

SettingsControl* makeSettingsControl(const SettingsRow& row, const Look& look, QWidget& parent,
                                     const SettingsControl::Use& use) {
  SettingsControl* control = nullptr;
  if (std::holds_alternative<SettingsSwitch>(row.control)) {
    control = new SwitchControl(look, parent, use);
  } else if (const auto* const choice = std::get_if<SettingsChoice>(&row.control)) {
    if (choice->kind == SettingsChoice::Kind::menu) {
      control = new MenuControl(look, parent, use);
    } else {
      control = new OptionsControl(choice->kind == SettingsChoice::Kind::colors, look, parent, use);
    }
  } else if (std::holds_alternative<SettingsMoves>(row.control)) {
    control = new MovesControl(look, parent, use);
  } else if (const auto* const button = std::get_if<SettingsButton>(&row.control)) {
    if (button->title.empty()) {
      control = new RowButtonControl(look, parent, use);
    } else {
      control = new ButtonControl(look, parent, use);
    }
  } else {
    control = new NoteControl(parent);
  }
  control->take(row);
  return control;
}

}  // namespace marigold
