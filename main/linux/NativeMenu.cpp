#include "NativeMenu.h"

#include <utility>

#include <QtGui/QAction>
#include <QtGui/QActionGroup>
#include <QtWidgets/QMenu>

namespace marigold {

namespace {

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

}  // namespace

void openNativeMenu(std::vector<MenuItem> items, const QPoint& at) {
  auto* const menu = new QMenu;
  menu->setAttribute(Qt::WA_DeleteOnClose);
  fill(*menu, std::move(items));
  menu->popup(at);
}

}  // namespace marigold
