#include "linux/popover/PopoverWindow.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include <QtCore/QEvent>
#include <QtGui/QCursor>
#include <QtGui/QKeyEvent>
#include <QtWidgets/QApplication>
#include <QtWidgets/QVBoxLayout>
#include <QtWidgets/QWidget>

#include "linux/popover/PopoverPanel.h"
#include "linux/popover/Spoken.h"
#include "linux/system/ScreenPlaces.h"
#include "linux/system/X11.h"

namespace marigold {

namespace {

/// How long a click takes at most to reach this program after the button was released.
constexpr Seconds clickOnItsWay{0.4};
constexpr Seconds buttonHeld{10};
/// For how long after it opened the focus may come and go: some window managers first give it to
/// the window, then back to the one before.
constexpr Seconds focusSettles{0.5};

}  // namespace

class PopoverWindow::Window final : public QWidget {
 public:
  Window(PopoverWindow& popover, EventLoop& loop, const ItemPlace& item)
      : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
        popover_(popover),
        loop_(loop),
        item_(item),
        compositor_(compositorSelection, [this] { round(); }) {
    setWindowTitle(QStringLiteral("Marigold"));
    setAttribute(Qt::WA_QuitOnClose, false);
    setAttribute(Qt::WA_TranslucentBackground);
    speakAs(*this, QAccessible::Dialog);
    auto* const frame = new QVBoxLayout(this);
    frame->setContentsMargins(0, 0, 0, 0);
  }

  void setContent(const PopoverContent& content) {
    content_ = content;
    if (panel_ != nullptr) {
      panel_->take(content_);
      fit();
    }
  }

  void open() {
    if (clickIsDue()) {
      return;
    }
    if (panel_ == nullptr) {
      makePanel();
    }
    fit();
    activateWhenPainted_ = true;
    hadFocus_ = false;
    focusSettled_ = loop_.now() + continuousDuration(focusSettles);
    x11StandsAlone(static_cast<std::uint32_t>(winId()));
    show();
    raise();
    update();
    // Made once an opening: the end of one watch would end another's, too.
    if (!buttons_) {
      buttons_ = std::make_unique<X11Buttons>([this](bool down) { buttonMoved(down); });
    }
  }

  void dismiss() {
    if (isVisible()) {
      hide();
      dropPanel();
      if (!clickIsDue()) {
        buttons_.reset();
      }
      if (popover_.onClosed) {
        popover_.onClosed();
      }
    }
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    // Not before: a window manager compares when the user last did something, here and in the
    // window that has the focus. What the toolkit knows of that is news only since this window
    // appeared.
    if (std::exchange(activateWhenPainted_, false)) {
      QMetaObject::invokeMethod(
          this,
          [this] {
            settleAt(asked_, *this);
            activateWindow();
          },
          Qt::QueuedConnection);
    }
  }

  void keyPressEvent(QKeyEvent* event) override {
    if (panel_ != nullptr && panel_->useKey(*event)) {
      return;
    }
    if (event->key() == Qt::Key_Escape) {
      dismiss();
    } else {
      QWidget::keyPressEvent(event);
    }
  }

  void closeEvent(QCloseEvent* event) override {
    event->ignore();
    dismiss();
  }

  void changeEvent(QEvent* event) override {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange) {
      // Looked at later: the focus may only pass through another window.
      QMetaObject::invokeMethod(
          this,
          [this] {
            if (isVisible() && !isActiveWindow() && hadFocus_ && !menuIsOpen()) {
              if (loop_.now() < focusSettled_) {
                activateWindow();
                return;
              }
              dismissByClick(clickOnItsWay);
            }
            hadFocus_ = isActiveWindow();
          },
          Qt::QueuedConnection);
    }
  }

 private:
  [[nodiscard]] bool clickIsDue() const { return loop_.now() < clickTold_; }
  static bool menuIsOpen() { return QApplication::activePopupWidget() != nullptr; }

  bool isAtPointer() {
    const auto place = placeOf(*this);
    return place && place->contains(QCursor::pos());
  }

  void buttonMoved(bool down) {
    if (!down) {
      if (clickIsDue()) {
        expectClick(clickOnItsWay);
      }
    } else if (isVisible() ? !isAtPointer() && !menuIsOpen() : clickIsDue()) {
      dismissByClick(buttonHeld);
    }
  }

  void dismissByClick(Seconds clickComesWithin) {
    expectClick(clickComesWithin);
    dismiss();
  }

  void expectClick(Seconds within) {
    clickTold_ = loop_.now() + continuousDuration(within);
    watchEnds_ = loop_.callAt(clickTold_, [this] { buttons_.reset(); });
  }

  void makePanel() {
    panel_ = new PopoverPanel(this);
    layout()->addWidget(panel_);
    panel_->onHeightChange = [this] { fit(); };
    round();
    panel_->take(content_);
    panel_->show();
  }

  // Each opening begins anew, and while it is closed it takes little memory. What is dropped may be
  // what is being used.
  void dropPanel() {
    panel_->onHeightChange = nullptr;
    panel_->hide();
    layout()->removeWidget(panel_);
    std::exchange(panel_, nullptr)->deleteLater();
    QMetaObject::invokeMethod(
        this,
        [this] {
          if (!isVisible()) {
            destroy();
          }
        },
        Qt::QueuedConnection);
  }

  // As large as what it shows, as far as the screen goes, at the place that suits the size. While
  // it is open it keeps its upper right corner, or the lower one where it stands above the item.
  void fit() {
    const QSize wanted = panel_->sizeHint();
    QRect place = openingAt(item_, wanted);
    // On Wayland a window does not know where it is, so there it only takes its new size.
    if (const auto known = isVisible() ? placeOf(*this) : std::nullopt) {
      constexpr int margin = 8;
      // Where a window manager still frames it, it is anywhere.
      const QRect before = loop_.now() < focusSettled_ ? QRect(asked_, size()) : *known;
      const QRect room = workArea(before.center()).adjusted(0, margin, 0, -margin);
      const bool above = item_.area && before.bottom() < item_.area->top();
      const int most = above ? before.bottom() - room.top() : room.bottom() - before.top();
      place.setSize({wanted.width(), std::min(wanted.height(), std::max(most + 1, 1))});
      if (above) {
        place.moveBottomRight(before.bottomRight());
      } else {
        place.moveTopRight(before.topRight());
      }
    }
    setFixedSize(place.size());
    asked_ = place.topLeft();
    move(asked_);
  }

  // Only where what is behind the corners shows through.
  void round() {
    if (panel_ != nullptr) {
      panel_->setTranslucent(compositor_.owned() ||
                             QGuiApplication::platformName() != QLatin1String("xcb"));
    }
  }

  PopoverWindow& popover_;
  EventLoop& loop_;
  const ItemPlace& item_;
  PopoverContent content_;
  PopoverPanel* panel_ = nullptr;  ///< while it is open
  X11Selection compositor_;
  bool activateWhenPainted_ = false;
  bool hadFocus_ = false;
  std::unique_ptr<X11Buttons> buttons_;
  QPoint asked_;          ///< where it was last asked to be
  Instant focusSettled_;  ///< until when it may come and go
  Instant clickTold_;     ///< when the click that closed the window must have been told
  Timer watchEnds_;
};

PopoverWindow::PopoverWindow(EventLoop& loop, const ItemPlace& item)
    : window_(std::make_unique<Window>(*this, loop, item)) {}

PopoverWindow::~PopoverWindow() = default;

void PopoverWindow::setContent(const PopoverContent& content) {
  window_->setContent(content);
}

void PopoverWindow::open() {
  window_->open();
}

void PopoverWindow::close() {
  // The token of the click that closes it is used up here: until it is, GNOME shows a busy pointer.
  if (window_->isVisible() && qEnvironmentVariableIsSet("XDG_ACTIVATION_TOKEN")) {
    window_->activateWindow();
  }
  window_->dismiss();
}

bool PopoverWindow::isShown() const {
  return window_->isVisible();
}

}  // namespace marigold
