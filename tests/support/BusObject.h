#pragma once

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusVariant>

namespace marigold::test {

/// An object's interface on a bus.
struct BusObject {
  QDBusConnection bus;
  QString service;
  QString path;
  QString interface;

  /// The first word of what it answers.
  [[nodiscard]] QVariant ask(const QString& method, const QVariantList& words = {}) const {
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, method);
    call.setArguments(words);
    return bus.call(call, QDBus::Block, 2000).arguments().value(0);
  }
  [[nodiscard]] QVariant property(const QString& name) const {
    const BusObject properties{bus, service, path, "org.freedesktop.DBus.Properties"};
    return properties.ask("Get", {interface, name}).value<QDBusVariant>().variant();
  }
};

}  // namespace marigold::test
