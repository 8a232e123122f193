#include "linux/item/NativeMenu.h"

#include <chrono>
#include <utility>

#include <QtCore/QEvent>
#include <QtCore/QTimer>
#include <QtGui/QAction>
#include <QtGui/QActionGroup>
#include <QtGui/QCursor>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMenu>
#include <QtWidgets/QWidget>

namespace marigold {

namespace {

constexpr std::chrono::milliseconds focusSettles{200};

void fill(QMenu& menu, std::vector<MenuItem> items) {
  menu.setToolTipsVisible(true);
  for (MenuItem& item : items) {
    QString title = QString(qsizetype{4} * item.indent, u' ') + QString::fromStdString(item.title);
    title.replace(u'&', QLatin1String("&&"));  // one alone marks a mnemonic
    QAction* action = nullptr;
    switch (item.kind) {
      case MenuItem::Kind::separator:
        action = menu.addSeparator();
        break;
      case MenuItem::Kind::submenu: {
        QMenu* const submenu = menu.addMenu(title);
        fill(*submenu, std::move(item.items));
        action = submenu->menuAction();
        break;
      }
      case MenuItem::Kind::radio:
        action = menu.addAction(title);
        // Being in a group is what makes it a radio item; what it excludes is not the menu's to
        // say.
        action->setActionGroup(new QActionGroup(action));
        [[fallthrough]];
      case MenuItem::Kind::checkbox:
        action = action != nullptr ? action : menu.addAction(title);
        action->setCheckable(true);
        action->setChecked(item.checked);
        break;
      case MenuItem::Kind::action:
        action = menu.addAction(title);
        break;
    }
    action->setEnabled(item.enabled);
    action->setToolTip(QString::fromStdString(item.tooltip));
    if (item.action) {
      QObject::connect(action, &QAction::triggered, [run = std::move(item.action)] { run(); });
    }
  }
}

// Stands in for a menu's own window on Wayland, where a menu that belongs to no window of ours is
// taken for an ordinary one and made as large as the screen: a window of fixed size floats. It goes
// away with the menu, or as the focus goes elsewhere.
class MenuWindow final : public QWidget {
 public:
  explicit MenuWindow(QMenu& menu) : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint) {
    setAttribute(Qt::WA_DeleteOnClose);
    setAttribute(Qt::WA_QuitOnClose, false);
    setWindowTitle(QStringLiteral("Marigold"));
    menu.setParent(this, Qt::Widget);
    setFixedSize(menu.sizeHint());
    menu.resize(size());
    setFocusProxy(&menu);
    connect(&menu, &QMenu::aboutToHide, this, &QWidget::close);
    focusLost_.setSingleShot(true);
    connect(&focusLost_, &QTimer::timeout, this, [this] { look(); });
    menu.show();
  }

 protected:
  void changeEvent(QEvent* event) override {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange) {
      focusLost_.start(focusSettles);
    }
  }

 private:
  // The focus may only pass through another window, or be in a submenu.
  void look() {
    if (isVisible() && !isActiveWindow() && QApplication::activePopupWidget() == nullptr) {
      close();
    }
  }

  QTimer focusLost_;
};

}  // namespace

void openNativeMenu(std::vector<MenuItem> items, const ItemPlace& item) {
  auto* const menu = new QMenu;
  menu->setAttribute(Qt::WA_DeleteOnClose);
  fill(*menu, std::move(items));
  if (QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) {
    auto* const window = new MenuWindow(*menu);
    window->show();
    window->activateWindow();
    menu->setFocus();
    return;
  }
  menu->popup(item.area ? openingAt(item, menu->sizeHint()).topLeft() : QCursor::pos());
}

}  // namespace marigold
