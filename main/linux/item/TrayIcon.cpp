#include "linux/item/TrayIcon.h"

#include <QtGui/QGuiApplication>
#include <QtGui/QIcon>
#include <QtWidgets/QApplication>
#include <QtWidgets/QSystemTrayIcon>
#include <QtWidgets/QWidget>

#include "linux/item/DrawingIcon.h"
#include "linux/item/PlainText.h"

namespace marigold {

namespace {

// The icon's window is the toolkit's own and has no name for assistive technology.
void describeWindow(const StatusItemContent& content) {
  for (QWidget* const window : QApplication::topLevelWidgets()) {
    if (window->inherits("QSystemTrayIconSys")) {
      window->setAccessibleName(QString::fromStdString(content.accessibilityLabel));
      window->setAccessibleDescription(QString::fromStdString(content.accessibilityValue));
    }
  }
}

}  // namespace

TrayIcon::TrayIcon() : icon_(std::make_unique<QSystemTrayIcon>()) {
  QObject::connect(
      icon_.get(), &QSystemTrayIcon::activated, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::MiddleClick || !onClick) {
          return;
        }
        // The second click of two quick ones has a reason of its own.
        const bool right = reason == QSystemTrayIcon::Context;
        const auto held = QGuiApplication::keyboardModifiers();
        onClick({.button = right ? StatusItemClick::Button::right : StatusItemClick::Button::left,
                 .controlHeld = held.testFlag(Qt::ControlModifier)},
                area());
      });
}

TrayIcon::~TrayIcon() = default;

void TrayIcon::setContent(const StatusItemContent& content) {
  if (content == content_) {
    return;
  }
  if (content.square != content_.square) {
    icon_->setIcon(drawingIcon(content.square));
  }
  icon_->setToolTip(plainToolTip(content.tooltipTitle, content.tooltip));
  content_ = content;
  icon_->show();
  describeWindow(content_);
}

std::optional<QRect> TrayIcon::area() const {
  const QRect area = icon_->geometry();
  return area.isEmpty() ? std::nullopt : std::optional(area);
}

}  // namespace marigold
