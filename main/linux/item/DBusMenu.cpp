#include "linux/item/DBusMenu.h"

#include <utility>

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusContext>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusVariant>

#include "linux/item/DBusMenuLayout.h"
#include "linux/item/NextTurn.h"

namespace marigold {

// The object on the bus. Its public slots, signals and properties are the interface, under the
// names and with the types of the protocol; types are spelled out because the toolkit looks them up
// by name.
class DBusMenu::Exported final : public QObject, protected QDBusContext {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
  Q_PROPERTY(uint Version MEMBER version_ CONSTANT)
  Q_PROPERTY(QString Status MEMBER status_ CONSTANT)
  Q_PROPERTY(QString TextDirection MEMBER textDirection_ CONSTANT)
  Q_PROPERTY(QStringList IconThemePath MEMBER iconThemePath_ CONSTANT)

 public:
  Exported(QDBusConnection connection, Items items)
      : connection_(std::move(connection)), items_(std::move(items)) {
    qDBusRegisterMetaType<DBusMenuLayout>();
    qDBusRegisterMetaType<DBusMenuProperties>();
    qDBusRegisterMetaType<QList<DBusMenuProperties>>();
    qDBusRegisterMetaType<DBusMenuRemovals>();
    qDBusRegisterMetaType<QList<DBusMenuRemovals>>();
    qDBusRegisterMetaType<DBusMenuEvent>();
    qDBusRegisterMetaType<QList<DBusMenuEvent>>();
    connection_.registerObject(QLatin1String(path), this, QDBusConnection::ExportAllContents);
  }
  Exported(const Exported&) = delete;
  Exported& operator=(const Exported&) = delete;
  ~Exported() override { connection_.unregisterObject(QLatin1String(path)); }

  Q_SLOT uint GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                        marigold::DBusMenuLayout& layout) {
    if (parentId == 0) {
      refresh(false);
    }
    if (const DBusMenuLayout* parent = findOrRefuse(parentId)) {
      layout = excerpt(*parent, recursionDepth, propertyNames);
    }
    return revision_;
  }
  [[nodiscard]] Q_SLOT QList<marigold::DBusMenuProperties> GetGroupProperties(
      const QList<int>& ids, const QStringList& propertyNames) const {
    return propertiesOf(layout_, ids, propertyNames);
  }
  Q_SLOT QDBusVariant GetProperty(int id, const QString& name) {
    const DBusMenuLayout* entry = findOrRefuse(id);
    if (entry != nullptr && !entry->properties.contains(name)) {
      sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("The entry has no such property"));
    }
    return QDBusVariant(entry != nullptr ? entry->properties.value(name) : QVariant());
  }
  Q_SLOT void Event(int id, const QString& eventId, const QDBusVariant& /*data*/,
                    uint /*timestamp*/) {
    if (findOrRefuse(id) != nullptr) {
      handle(id, eventId);
    }
  }
  Q_SLOT QList<int> EventGroup(const QList<marigold::DBusMenuEvent>& events) {
    QList<int> unknown;
    for (const DBusMenuEvent& event : events) {
      if (find(layout_, event.id) != nullptr) {
        handle(event.id, event.name);
      } else {
        unknown.append(event.id);
      }
    }
    return unknown;
  }
  Q_SLOT bool AboutToShow(int id) {
    return findOrRefuse(id) != nullptr && id == 0 && refresh(true);
  }
  Q_SLOT QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors) {
    const bool needsUpdate = ids.contains(0) && refresh(true);
    for (const int id : ids) {
      if (find(layout_, id) == nullptr) {
        idErrors.append(id);
      }
    }
    return needsUpdate ? QList<int>{0} : QList<int>{};
  }

  void refreshIfRead() {
    if (revision_ > 0) {
      refresh(false);
    }
  }

 Q_SIGNALS:
  void LayoutUpdated(uint /*revision*/, int /*parent*/);
  void ItemsPropertiesUpdated(const QList<marigold::DBusMenuProperties>& /*updatedProps*/,
                              const QList<marigold::DBusMenuRemovals>& /*removedProps*/);
  void ItemActivationRequested(int /*id*/, uint /*timestamp*/);

 private:
  const DBusMenuLayout* findOrRefuse(int id) {
    const DBusMenuLayout* found = find(layout_, id);
    if (found == nullptr) {
      sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("The menu has no such entry"));
    }
    return found;
  }

  void handle(int id, const QString& event) {
    const auto action = actions_.find(id);
    if (event == QLatin1String("clicked") && action != actions_.end()) {
      clicks_.run(action->second);
      clicks_.run([this] { refreshIfRead(); });
    }
  }

  // Takes over the current items and tells hosts what changed; true when anything did.
  bool refresh(bool opening) {
    DBusMenuLayout layout = layOutMenu(items_(opening), layout_, nextId_, actions_);
    if (layout == layout_) {
      return false;
    }
    const DBusMenuLayout before = std::exchange(layout_, std::move(layout));
    const QList<DBusMenuProperties> changed = changes(before, layout_);
    // Some hosts read only entries that are new to them when the layout is updated.
    if (!changed.isEmpty()) {
      Q_EMIT ItemsPropertiesUpdated(changed, {});
    }
    Q_EMIT LayoutUpdated(++revision_, 0);
    return true;
  }

  const uint version_ = 3;
  const QString status_ = QStringLiteral("normal");
  const QString textDirection_ = QStringLiteral("ltr");
  const QStringList iconThemePath_;

  QDBusConnection connection_;
  Items items_;
  DBusMenuLayout layout_ = emptyMenu();
  DBusMenuActions actions_;
  NextTurn clicks_;
  uint revision_ = 0;
  int nextId_ = 1;
};

DBusMenu::DBusMenu(QDBusConnection connection, Items items)
    : exported_(std::make_unique<Exported>(std::move(connection), std::move(items))) {}

DBusMenu::~DBusMenu() = default;

void DBusMenu::refresh() {
  exported_->refreshIfRead();
}

}  // namespace marigold

#include "DBusMenu.moc"
