#pragma once

#include <QtCore/QObject>
#include <QtCore/QVariant>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCall>

#include "linux/item/DBusMenuLayout.h"
#include "support/ToolkitApplication.h"

namespace marigold::test {

/// A StatusNotifierItem watcher with its host on a connection of its own, and what it hears of the
/// item it was given.
class TrayHost final : public QObject {
  Q_OBJECT
  Q_DISABLE_COPY_MOVE(TrayHost)
  Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
  Q_PROPERTY(bool IsStatusNotifierHostRegistered MEMBER hosted_ CONSTANT)

 public:
  TrayHost(const QString& busAddress, const char* name, bool hosted = true)
      : bus_(QDBusConnection::connectToBus(busAddress, name)), hosted_(hosted) {
    bus_.registerObject("/StatusNotifierWatcher", this, QDBusConnection::ExportAllContents);
    bus_.registerService("org.kde.StatusNotifierWatcher");
  }
  ~TrayHost() override { QDBusConnection::disconnectFromBus(bus_.name()); }

  QString item;
  std::vector<std::string> heard;  // members of the item's signals

  void gainHost() {
    hosted_ = true;
    Q_EMIT StatusNotifierHostRegistered();
  }
  /// The answer of the item's process; the error's name when it refuses.
  QVariantList ask(const char* path, const QString& interface, const QString& method,
                   const QVariantList& arguments = {}) {
    QDBusMessage call = QDBusMessage::createMethodCall(item, path, interface, method);
    call.setArguments(arguments);
    // The toolkit's own way of waiting in its loop may miss an answer that comes at once.
    const QDBusPendingCall pending = bus_.asyncCall(call, 5000);
    (void)eventually([&] { return pending.isFinished(); });
    // The answer may overtake the signals that were sent before it.
    QCoreApplication::processEvents();
    const QDBusMessage reply = pending.reply();
    return reply.type() == QDBusMessage::ReplyMessage ? reply.arguments()
                                                      : QVariantList{reply.errorName()};
  }
  QVariantList askItem(const QString& method, const QVariantList& arguments = {}) {
    return ask("/StatusNotifierItem", "org.kde.StatusNotifierItem", method, arguments);
  }
  QVariantList askMenu(const QString& method, const QVariantList& arguments = {}) {
    return ask("/MenuBar", "com.canonical.dbusmenu", method, arguments);
  }
  DBusMenuLayout layout(int id = 0, int depth = -1, const QStringList& names = {}) {
    return qdbus_cast<DBusMenuLayout>(askMenu("GetLayout", {id, depth, names}).value(1));
  }
  QVariantMap properties(const char* path, const QString& interface) {
    return qdbus_cast<QVariantMap>(
        ask(path, "org.freedesktop.DBus.Properties", "GetAll", {interface}).value(0));
  }
  QVariantMap itemProperties() {
    return properties("/StatusNotifierItem", "org.kde.StatusNotifierItem");
  }

  Q_SLOT void RegisterStatusNotifierItem(const QString& service) {
    item = service;
    for (const char* interface : {"org.kde.StatusNotifierItem", "com.canonical.dbusmenu"}) {
      bus_.connect(service, {}, interface, {}, this, SLOT(hear(QDBusMessage)));
    }
  }

 Q_SIGNALS:
  void StatusNotifierHostRegistered();

 private:
  Q_SLOT void hear(const QDBusMessage& signal) { heard.push_back(signal.member().toStdString()); }

  QDBusConnection bus_;
  bool hosted_;
};

/// A layout as text: "~" marks a disabled entry, "c" and "r" a toggle, "*" one that is on.
inline std::string menuText(const DBusMenuLayout& layout, QList<int>& ids) {
  const QVariantMap& properties = layout.properties;
  ids.append(layout.id);
  std::string text = properties.value("label", properties.value("type")).toString().toStdString();
  text += properties.value("enabled", true).toBool() ? "" : "~";
  text += properties.value("toggle-type").toString().left(1).toStdString();
  text += properties.value("toggle-state").toInt() == 1 ? "*" : "";
  if (properties.contains("children-display")) {
    text += "(";
    for (const DBusMenuLayout& child : layout.children) {
      text += menuText(child, ids) + ";";
    }
    text += ")";
  }
  return text;
}

}  // namespace marigold::test
