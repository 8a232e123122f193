#pragma once

#include <functional>
#include <map>
#include <tuple>
#include <vector>

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariantMap>
#include <QtDBus/QDBusVariant>

#include "base/MenuItem.h"
#include "linux/item/DBusStructure.h"

// A menu as com.canonical.dbusmenu tells it: the protocol's structures, with their signatures, and
// what is asked of them. Each structure is both written and read because the toolkit asks for both
// directions.

namespace marigold {

/// (ia{sv}av): an entry with the entries below it, each of these in a variant.
struct DBusMenuLayout {
  int id = 0;
  QVariantMap properties;
  std::vector<DBusMenuLayout> children;

  bool operator==(const DBusMenuLayout&) const = default;

  friend QDBusArgument& operator<<(QDBusArgument& to, const DBusMenuLayout& layout);
  friend const QDBusArgument& operator>>(const QDBusArgument& from, DBusMenuLayout& layout);
};

/// (ia{sv}): an entry's properties.
struct DBusMenuProperties {
  int id = 0;
  QVariantMap properties;

  static constexpr std::tuple fields{&DBusMenuProperties::id, &DBusMenuProperties::properties};
};

/// (ias): names of properties that an entry lost.
struct DBusMenuRemovals {
  int id = 0;
  QStringList names;

  static constexpr std::tuple fields{&DBusMenuRemovals::id, &DBusMenuRemovals::names};
};

/// (isvu): what happened to an entry, with the event's data and time.
struct DBusMenuEvent {
  int id = 0;
  QString name;
  QDBusVariant data;
  uint time = 0;

  static constexpr std::tuple fields{&DBusMenuEvent::id, &DBusMenuEvent::name, &DBusMenuEvent::data,
                                     &DBusMenuEvent::time};
};

/// What clicks on entries run, by their ids.
using DBusMenuActions = std::map<int, std::function<void()>>;

/// The menu itself, without entries; its id is 0.
[[nodiscard]] DBusMenuLayout emptyMenu();

/// The layout of `items`, with the `actions` of those that can be clicked. A level whose entries
/// all are the same as in `before` keeps their ids, any other gets new ones, counted up from
/// `nextId`: a click on what a host still shows of an older menu never reaches another entry.
[[nodiscard]] DBusMenuLayout layOutMenu(const std::vector<MenuItem>& items,
                                        const DBusMenuLayout& before, int& nextId,
                                        DBusMenuActions& actions);

/// The entry `id` at or below `layout`; null when there is none.
[[nodiscard]] const DBusMenuLayout* find(const DBusMenuLayout& layout, int id);

// Of properties, those of `names` are told; all when it names none.

/// The part of `layout` that a host asked for: `depth` levels below it, all when negative.
[[nodiscard]] DBusMenuLayout excerpt(const DBusMenuLayout& layout, int depth,
                                     const QStringList& names);

/// The properties of the entries `ids` at and below `layout`, of all when there are none. Each is
/// told once, however often it is asked for; unknown ones are left out.
[[nodiscard]] QList<DBusMenuProperties> propertiesOf(const DBusMenuLayout& layout,
                                                     const QList<int>& ids,
                                                     const QStringList& names);

/// The properties of entries of both layouts that changed.
[[nodiscard]] QList<DBusMenuProperties> changes(const DBusMenuLayout& before,
                                                const DBusMenuLayout& after);

}  // namespace marigold
