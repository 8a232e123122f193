#include "linux/item/DBusMenuLayout.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include <QtDBus/QDBusArgument>

namespace marigold {

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
  if (!item.tooltip.empty()) {  // the protocol knows none
    result[QStringLiteral("accessible-desc")] = QString::fromStdString(item.tooltip);
  }
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

void collect(const DBusMenuLayout& layout, const QList<int>& ids, const QStringList& names,
             QList<DBusMenuProperties>& result) {
  if (ids.isEmpty() || ids.contains(layout.id)) {
    result.append({.id = layout.id, .properties = selected(layout.properties, names)});
  }
  for (const DBusMenuLayout& child : layout.children) {
    collect(child, ids, names, result);
  }
}

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

void addEntries(DBusMenuLayout& parent, const std::vector<MenuItem>& items,
                const DBusMenuLayout* before, int& nextId, DBusMenuActions& actions) {
  for (const MenuItem& item : items) {
    parent.children.push_back({.properties = propertiesOf(item)});
  }
  const bool same =
      before != nullptr && std::ranges::equal(parent.children, before->children, isSameEntry);
  for (std::size_t i = 0; i < items.size(); ++i) {
    DBusMenuLayout& entry = parent.children[i];
    const DBusMenuLayout* const old = same ? &before->children[i] : nullptr;
    entry.id = old != nullptr ? old->id : nextId++;
    if (items[i].enabled && items[i].action) {
      actions[entry.id] = items[i].action;
    }
    addEntries(entry, items[i].items, old, nextId, actions);
  }
}

}  // namespace

QDBusArgument& operator<<(QDBusArgument& to, const DBusMenuLayout& layout) {
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

const QDBusArgument& operator>>(const QDBusArgument& from, DBusMenuLayout& layout) {
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

DBusMenuLayout emptyMenu() {
  return {.properties = {{QStringLiteral("children-display"), QStringLiteral("submenu")}}};
}

DBusMenuLayout layOutMenu(const std::vector<MenuItem>& items, const DBusMenuLayout& before,
                          int& nextId, DBusMenuActions& actions) {
  actions.clear();
  DBusMenuLayout layout = emptyMenu();
  addEntries(layout, items, &before, nextId, actions);
  return layout;
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

DBusMenuLayout excerpt(const DBusMenuLayout& layout, int depth, const QStringList& names) {
  DBusMenuLayout result{.id = layout.id, .properties = selected(layout.properties, names)};
  if (depth != 0) {
    for (const DBusMenuLayout& child : layout.children) {
      result.children.push_back(excerpt(child, depth < 0 ? depth : depth - 1, names));
    }
  }
  return result;
}

QList<DBusMenuProperties> propertiesOf(const DBusMenuLayout& layout, const QList<int>& ids,
                                       const QStringList& names) {
  QList<DBusMenuProperties> result;
  collect(layout, ids, names, result);
  return result;
}

QList<DBusMenuProperties> changes(const DBusMenuLayout& before, const DBusMenuLayout& after) {
  QList<DBusMenuProperties> result;
  collectChanged(before, after, result);
  return result;
}

}  // namespace marigold
