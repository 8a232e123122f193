#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <QtCore/QLatin1String>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCallWatcher>
#include <QtDBus/QDBusServiceWatcher>

namespace marigold {

/// The acquaintance of an item with the StatusNotifierItem watcher of a bus: it is offered to the
/// one that is there and to every later one.
class TrayWatcher final : public QObject {
  Q_OBJECT

 public:
  /// Offers the item that `connection` exports, which must be connected. `onChange` is called when
  /// `available` or `isAsking` may have changed; it must not destroy this.
  TrayWatcher(QDBusConnection connection, std::function<void()> onChange);

  /// Whether a watcher has taken the item and a host is there to show it.
  [[nodiscard]] bool available() const { return available_; }
  /// Whether there is a watcher that has not said yet whether it shows the item.
  [[nodiscard]] bool isAsking() const { return answer_ != nullptr; }
  /// The name of the process that is the watcher, at most 15 bytes; empty until it is known.
  [[nodiscard]] std::string program() const { return program_.value_or(""); }

 private:
  Q_SLOT void hostsChanged();
  Q_SLOT void busEnded();

  void ask(const QDBusMessage& question, std::function<void(const QDBusMessage&)> answered);
  [[nodiscard]] QDBusMessage watcherCall(QLatin1String interface, const char* method) const;
  void meet(const QString& owner);
  void askForProcess();
  void askForHost();
  void setAvailable(bool available);

  QDBusConnection connection_;
  std::function<void()> onChange_;
  QDBusServiceWatcher owners_;
  std::unique_ptr<QDBusPendingCallWatcher> answer_;
  QString owner_;
  std::optional<std::string> program_;  ///< absent until it was asked for
  bool available_ = false;
};

}  // namespace marigold
