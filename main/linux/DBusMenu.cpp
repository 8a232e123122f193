#include "DBusMenu.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariantMap>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusContext>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusVariant>

#include "DBusStructure.h"
#include "NextTurn.h"

namespace marigold {

// The structures of com.canonical.dbusmenu, with their signatures. Each is both written and read
// because the toolkit asks for both directions.

// (ia{sv}av): an entry with the entries below it, each of these in a variant.
struct DBusMenuLayout {
  int id = 0;
  QVariantMap properties;
  std::vector<DBusMenuLayout> children;

  bool operator==(const DBusMenuLayout&) const = default;

  friend QDBusArgument& operator<<(QDBusArgument& to, const DBusMenuLayout& layout) {
    to.beginStructure();
    to << layout.id << layout.properties;
    to.beginArray(QMetaType::fromType<QDBusVariant>());
    for (const DBusMenuLayout& child : layout.children) {
      to << QDBusVariant(QVariant::fromValue(child));
    }
    to.endArray();
    to.endStructure();
    return to;
  }
  friend const QDBusArgument& operator>>(const QDBusArgument& from, DBusMenuLayout& layout) {
    QVariantList variants;
    from.beginStructure();
    from >> layout.id >> layout.properties >> variants;
    from.endStructure();
    layout.children.clear();
    for (const QVariant& child : std::as_const(variants)) {
      layout.children.push_back(qdbus_cast<DBusMenuLayout>(child));
    }
    return from;  // NOLINT(bugprone-return-const-ref-from-parameter): as the toolkit asks
  }
};

// (ia{sv}): an entry's properties.
struct DBusMenuProperties {
  int id = 0;
  QVariantMap properties;

  static constexpr std::tuple fields{&DBusMenuProperties::id, &DBusMenuProperties::properties};
};

// (ias): names of properties that an entry lost.
struct DBusMenuRemovals {
  int id = 0;
  QStringList names;

  static constexpr std::tuple fields{&DBusMenuRemovals::id, &DBusMenuRemovals::names};
};

// (isvu): what happened to an entry, with the event's data and time.
struct DBusMenuEvent {
  int id = 0;
  QString name;
  QDBusVariant data;
  uint time = 0;

  static constexpr std::tuple fields{&DBusMenuEvent::id, &DBusMenuEvent::name, &DBusMenuEvent::data,
                                     &DBusMenuEvent::time};
};

namespace {

constexpr QLatin1String enabledKey("enabled");
constexpr QLatin1String toggleStateKey("toggle-state");

QVariantMap propertiesOf(const MenuItem& item) {
  QVariantMap result{{QStringLiteral("visible"), true}, {enabledKey, item.enabled}};
  if (item.kind == MenuItem::Kind::separator) {
    result[QStringLiteral("type")] = QStringLiteral("separator");
    return result;
  }
  // The protocol knows no indent, and an underscore marks the mnemonic unless it is doubled.
  QString label(4 * qsizetype{std::max(item.indent, 0)}, u' ');
  label += QString::fromStdString(item.title).replace(u'_', QStringLiteral("__"));
  result[QStringLiteral("label")] = label;
  if (item.kind == MenuItem::Kind::submenu) {
    result[QStringLiteral("children-display")] = QStringLiteral("submenu");
  } else if (item.kind != MenuItem::Kind::action) {
    result[QStringLiteral("toggle-type")] =
        item.kind == MenuItem::Kind::radio ? QStringLiteral("radio") : QStringLiteral("checkmark");
    result[toggleStateKey] = item.checked ? 1 : 0;
  }
  return result;
}

// Whether a person would take one entry for the other.
bool isSameEntry(const DBusMenuLayout& one, const DBusMenuLayout& other) {
  const auto lasting = [](QVariantMap properties) {
    properties.remove(enabledKey);
    properties.remove(toggleStateKey);
    return properties;
  };
  return lasting(one.properties) == lasting(other.properties);
}

QVariantMap selected(const QVariantMap& properties, const QStringList& names) {
  if (names.isEmpty()) {
    return properties;
  }
  QVariantMap result;
  for (auto each = properties.begin(); each != properties.end(); ++each) {
    if (names.contains(each.key())) {
      result.insert(each.key(), each.value());
    }
  }
  return result;
}

// The part of `layout` that a host asked for: `depth` levels below it, all when negative.
DBusMenuLayout excerpt(const DBusMenuLayout& layout, int depth, const QStringList& names) {
  DBusMenuLayout result{.id = layout.id, .properties = selected(layout.properties, names)};
  if (depth != 0) {
    for (const DBusMenuLayout& child : layout.children) {
      result.children.push_back(excerpt(child, depth < 0 ? depth : depth - 1, names));
    }
  }
  return result;
}

// The menu itself, without entries.
DBusMenuLayout root() {
  return {.properties = {{QStringLiteral("children-display"), QStringLiteral("submenu")}}};
}

const DBusMenuLayout* find(const DBusMenuLayout& layout, int id) {
  if (layout.id == id) {
    return &layout;
  }
  for (const DBusMenuLayout& child : layout.children) {
    if (const DBusMenuLayout* found = find(child, id)) {
      return found;
    }
  }
  return nullptr;
}

void collect(const DBusMenuLayout& layout, const QList<int>& ids, const QStringList& names,
             QList<DBusMenuProperties>& result) {
  if (ids.isEmpty() || ids.contains(layout.id)) {
    result.append({.id = layout.id, .properties = selected(layout.properties, names)});
  }
  for (const DBusMenuLayout& child : layout.children) {
    collect(child, ids, names, result);
  }
}

// Entries of both layouts whose properties changed.
void collectChanged(const DBusMenuLayout& before, const DBusMenuLayout& after,
                    QList<DBusMenuProperties>& result) {
  if (before.id != after.id) {
    return;
  }
  if (before.properties != after.properties) {
    result.append({.id = after.id, .properties = after.properties});
  }
  for (std::size_t i = 0; i < std::min(before.children.size(), after.children.size()); ++i) {
    collectChanged(before.children[i], after.children[i], result);
  }
}

}  // namespace

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
  Exported(Exported&&) = delete;
  Exported& operator=(Exported&&) = delete;
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
  // Each entry is told once, however often it is asked for; unknown ones are left out.
  [[nodiscard]] Q_SLOT QList<marigold::DBusMenuProperties> GetGroupProperties(
      const QList<int>& ids, const QStringList& propertyNames) const {
    QList<DBusMenuProperties> result;
    collect(layout_, ids, propertyNames, result);
    return result;
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
    }
  }

  // Takes over the current items and tells hosts what changed; true when anything did.
  bool refresh(bool opening) {
    DBusMenuLayout layout = root();
    actions_.clear();
    addEntries(layout, items_(opening), &layout_);
    if (layout == layout_) {
      return false;
    }
    const DBusMenuLayout before = std::exchange(layout_, std::move(layout));
    QList<DBusMenuProperties> changed;
    collectChanged(before, layout_, changed);
    // Some hosts read only entries that are new to them when the layout is updated.
    if (!changed.isEmpty()) {
      Q_EMIT ItemsPropertiesUpdated(changed, {});
    }
    Q_EMIT LayoutUpdated(++revision_, 0);
    return true;
  }

  // A level whose entries all are the same as `before` keeps their ids, any other gets new ones: a
  // click on what a host still shows of an older menu never reaches another entry.
  void addEntries(DBusMenuLayout& parent, const std::vector<MenuItem>& items,
                  const DBusMenuLayout* before) {
    for (const MenuItem& item : items) {
      parent.children.push_back({.properties = propertiesOf(item)});
    }
    const bool same =
        before != nullptr && std::ranges::equal(parent.children, before->children, isSameEntry);
    for (std::size_t i = 0; i < items.size(); ++i) {
      const DBusMenuLayout* old = same ? &before->children[i] : nullptr;
      parent.children[i].id = old != nullptr ? old->id : nextId_++;
      if (items[i].enabled && items[i].action) {
        actions_[parent.children[i].id] = items[i].action;
      }
      addEntries(parent.children[i], items[i].items, old);
    }
  }

  const uint version_ = 3;
  const QString status_ = QStringLiteral("normal");
  const QString textDirection_ = QStringLiteral("ltr");
  const QStringList iconThemePath_;

  QDBusConnection connection_;
  Items items_;
  DBusMenuLayout layout_ = root();
  std::map<int, std::function<void()>> actions_;
  NextTurn clicks_;
  uint revision_ = 0;
  int nextId_ = 1;
};

DBusMenu::DBusMenu(QDBusConnection connection, Items items)
    : exported_(std::make_unique<Exported>(std::move(connection), std::move(items))) {}

DBusMenu::~DBusMenu() = default;

}  // namespace marigold

#include "DBusMenu.moc"
