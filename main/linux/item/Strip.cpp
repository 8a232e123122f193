#include "linux/item/Strip.h"

#include <cmath>
#include <cstdint>
#include <utility>

#include <QtCore/QStringList>
#include <QtGui/QAccessible>
#include <QtGui/QCloseEvent>
#include <QtGui/QKeyEvent>
#include <QtGui/QMouseEvent>
#include <QtGui/QPainter>
#include <QtGui/QScreen>
#include <QtGui/QWindow>
#include <QtWidgets/QAccessibleWidget>
#include <QtWidgets/QApplication>

#include "linux/item/PlainText.h"
#include "linux/system/QtPainter.h"
#include "linux/system/ScreenPlaces.h"
#include "popover/PopoverTheme.h"

namespace marigold {

namespace {

constexpr int sidePad = 8;
constexpr int endPad = 4;
constexpr double cornerRadius = 8;
/// How long a window manager may take to put the strip elsewhere than was asked for, as for a
/// panel.
constexpr Seconds answerTakes{1};
/// For how long the strip rests before its place is saved.
constexpr Seconds atRest{0.5};

struct Colors {
  QColor ground;
  QColor edge;
};

Colors colors(bool dark, bool translucent) {
  QColor ground = dark ? QColor(0x1C, 0x1C, 0x1F) : QColor(0xF6, 0xF6, 0xF8);
  ground.setAlphaF(translucent ? 0.88F : 1.0F);
  return {.ground = ground, .edge = dark ? QColor(255, 255, 255, 40) : QColor(0, 0, 0, 40)};
}

// To assistive technology the strip is a button that says its mark. A value that is no number does
// not reach it, so the spoken description carries it, too.
class AccessibleStrip final : public QAccessibleWidget {
 public:
  explicit AccessibleStrip(Strip& strip)
      : QAccessibleWidget(&strip, QAccessible::Button), strip_(strip) {}

  [[nodiscard]] QString text(QAccessible::Text kind) const override {
    return kind == QAccessible::Value ? strip_.spokenValue() : QAccessibleWidget::text(kind);
  }
  [[nodiscard]] QStringList actionNames() const override {
    return {pressAction(), showMenuAction()};
  }
  void doAction(const QString& name) override {
    if (name == pressAction()) {
      strip_.click(StatusItemClick::Button::left);
    } else if (name == showMenuAction()) {
      strip_.click(StatusItemClick::Button::right);
    }
  }

 private:
  Strip& strip_;
};

QAccessibleInterface* makeAccessible(const QString& /*className*/, QObject* object) {
  auto* const strip = dynamic_cast<Strip*>(object);
  return strip != nullptr ? new AccessibleStrip(*strip) : nullptr;
}

std::optional<QPoint> parsePlace(const std::optional<std::string>& text) {
  const QStringList parts = QString::fromStdString(text.value_or("")).split(u',');
  bool xValid = false;
  bool yValid = false;
  const QPoint point(parts.value(0).toInt(&xValid), parts.value(1).toInt(&yValid));
  return xValid && yValid && parts.size() == 2 ? std::optional(point) : std::nullopt;
}

}  // namespace

Strip::Strip(EventLoop& loop, Place place)
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
      loop_(loop),
      place_(std::move(place)),
      wanted_(parsePlace(place_.load())),
      compositor_(compositorSelection, [this] { update(); }) {
  setAttribute(Qt::WA_ShowWithoutActivating);
  setAttribute(Qt::WA_TranslucentBackground);
  setAttribute(Qt::WA_AlwaysShowToolTips);  // though it is seldom the active window
  setFocusPolicy(Qt::StrongFocus);
  setAttribute(Qt::WA_QuitOnClose, false);
  QAccessible::installFactory(makeAccessible);
  setContent({});

  for (const QScreen* const screen : QGuiApplication::screens()) {
    follow(screen);
  }
  connect(qGuiApp, &QGuiApplication::screenAdded, this, &Strip::follow);
  connect(qGuiApp, &QGuiApplication::screenRemoved, this, &Strip::put, Qt::QueuedConnection);
  connect(qGuiApp, &QGuiApplication::primaryScreenChanged, this, &Strip::put, Qt::QueuedConnection);
}

void Strip::setContent(const StatusItemContent& content) {
  setWindowTitle(QString::fromStdString(content.accessibilityLabel));
  setAccessibleName(windowTitle());
  setAccessibleDescription(QString::fromStdString(content.accessibilityValue));
  setToolTip(plainToolTip(content.tooltipTitle, content.tooltip));
  if (content.mark != mark_) {
    mark_ = content.mark;
    picture_ = {};
    update();
  }
  const QSize needed(static_cast<int>(std::ceil(mark_.size.width)) + 2 * sidePad,
                     static_cast<int>(std::ceil(mark_.size.height)) + 2 * endPad);
  if (needed == size()) {
    return;
  }
  // On the right of the screen it grows to the left.
  if (wanted_ && isVisible() && geometry().center().x() > screen()->geometry().center().x()) {
    wanted_->rx() += width() - needed.width();
  }
  setFixedSize(needed);
  put();
}

void Strip::setDark(bool dark) {
  if (std::exchange(dark_, dark) != dark) {
    update();
  }
}

void Strip::click(StatusItemClick::Button button, bool controlHeld) {
  if (onClick) {
    onClick({.button = button, .controlHeld = controlHeld}, placeOf(*this));
  }
}

void Strip::put() {
  put_ = wanted_ ? placeOnScreen(*wanted_, size()) : openingAt({}, size()).topLeft();
  answered_ = loop_.now() + continuousDuration(answerTakes);
  move(put_);
}

void Strip::remember() {
  place_.save(std::to_string(pos().x()) + "," + std::to_string(pos().y()));
}

void Strip::follow(const QScreen* screen) {
  connect(screen, &QScreen::availableGeometryChanged, this, &Strip::put);
  put();
}

bool Strip::translucent() const {
  return QGuiApplication::platformName() != QLatin1String("xcb") || compositor_.owned();
}

// A window manager's close key does not take the item from its user.
void Strip::closeEvent(QCloseEvent* event) {
  event->ignore();
}

// The user has it moved by the window manager, too.
void Strip::moveEvent(QMoveEvent* event) {
  QWidget::moveEvent(event);
  if (!pressed_ && pos() != put_ && loop_.now() >= answered_) {
    wanted_ = put_ = pos();
    moved_ = loop_.callAfter(atRest, [this] { remember(); });
  }
}

void Strip::showEvent(QShowEvent* event) {
  x11StandsAlone(static_cast<std::uint32_t>(winId()));
  QWidget::showEvent(event);
}

void Strip::paintEvent(QPaintEvent* /*event*/) {
  const double ratio = devicePixelRatioF();
  if (picture_.devicePixelRatio() != ratio || picture_.isNull()) {
    picture_ = rasterize(mark_, ratio);
    picture_.setDevicePixelRatio(ratio);
  }
  if (!std::exchange(settled_, true)) {
    QMetaObject::invokeMethod(this, [this] { settleAt(put_, *this); }, Qt::QueuedConnection);
  }
  const bool round = translucent();  // what is transparent would be black, or dirt
  const auto [ground, edge] = colors(dark_, round);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setBrush(ground);
  painter.setPen(edge);
  if (!round) {
    painter.fillRect(rect(), ground);
  }
  const double radius = round ? cornerRadius : 0;
  painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
  // On whole pixels, or the texts are blurred.
  painter.drawImage(
      QPointF(std::round(sidePad * ratio) / ratio, std::round(endPad * ratio) / ratio), picture_);
  if (ring_ && hasFocus()) {
    constexpr double width = 2;
    const auto scheme = dark_ ? MarigoldTheme::Scheme::dark : MarigoldTheme::Scheme::light;
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(toQt(popoverColors({.scheme = scheme}).focusRing), width));
    painter.drawRoundedRect(QRectF(rect()).adjusted(width / 2, width / 2, -width / 2, -width / 2),
                            radius, radius);
  }
}

void Strip::focusInEvent(QFocusEvent* event) {
  ring_ = QGuiApplication::mouseButtons() == Qt::NoButton;
  QWidget::focusInEvent(event);
}

void Strip::keyPressEvent(QKeyEvent* event) {
  const int key = event->key();
  if (key == Qt::Key_Return || key == Qt::Key_Enter || key == Qt::Key_Space) {
    click(StatusItemClick::Button::left);
  } else if (key == Qt::Key_Menu || event->keyCombination() == (Qt::SHIFT | Qt::Key_F10)) {
    click(StatusItemClick::Button::right);
  } else {
    QWidget::keyPressEvent(event);
  }
}

void Strip::mousePressEvent(QMouseEvent* event) {
  ring_ = false;
  update();
  if (event->button() == Qt::LeftButton) {
    pressed_ = event->position().toPoint();
    dragged_ = false;
  }
}

void Strip::mouseMoveEvent(QMouseEvent* event) {
  if (!pressed_) {
    return;
  }
  // By the place on the screen: the one on the strip is of where it was before it last moved.
  const QPoint place = event->globalPosition().toPoint() - *pressed_;
  dragged_ = dragged_ || (place - pos()).manhattanLength() >= QApplication::startDragDistance();
  if (!dragged_) {
    return;
  }
  if (QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) {
    pressed_.reset();
    windowHandle()->startSystemMove();  // nothing else moves a window there
  } else {
    move(place);
  }
}

void Strip::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() == Qt::RightButton && rect().contains(event->position().toPoint())) {
    click(StatusItemClick::Button::right, event->modifiers().testFlag(Qt::ControlModifier));
  } else if (event->button() == Qt::LeftButton && pressed_) {
    pressed_.reset();
    if (!dragged_) {
      click(StatusItemClick::Button::left, event->modifiers().testFlag(Qt::ControlModifier));
      return;
    }
    wanted_ = pos();
    put();
    remember();
  }
}

}  // namespace marigold
