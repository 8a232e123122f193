#pragma once

#include <tuple>

#include <QtDBus/QDBusArgument>

namespace marigold {

/// A structure that D-Bus transports member by member. It names its members, in the order of its
/// signature, in a tuple `fields` of pointers to them.
template <class Type>
concept DBusStructure = requires { Type::fields; };

QDBusArgument& operator<<(QDBusArgument& to, const DBusStructure auto& value) {
  to.beginStructure();
  std::apply([&](auto... field) { (to << ... << (value.*field)); }, value.fields);
  to.endStructure();
  return to;
}

const QDBusArgument& operator>>(const QDBusArgument& from, DBusStructure auto& value) {
  from.beginStructure();
  std::apply([&](auto... field) { (from >> ... >> (value.*field)); }, value.fields);
  from.endStructure();
  return from;  // NOLINT(bugprone-return-const-ref-from-parameter): as the toolkit asks
}

}  // namespace marigold
