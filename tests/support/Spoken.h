#pragma once

#include <QtCore/QList>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusObjectPath>

#include "support/BusObject.h"
#include "support/ChildProcess.h"
#include "support/PrivateBus.h"
#include "support/ToolkitApplication.h"

namespace marigold::test {

/// An object as assistive technology is told of it, with what is visible below it.
struct Spoken {
  QString service;
  QString path;
  std::string role;
  std::string name;
  std::string description;
  unsigned state = 0;  // bits by AT-SPI's numbers
  std::vector<Spoken> children;

  /// "role name: description(what is below);", without what only holds others together; "*" when it
  /// is checked, "!" when it is active, "+" when it can be expanded and "-" when it is.
  [[nodiscard]] std::string text() const {
    std::string below;
    for (const Spoken& child : children) {
      below += child.text();
    }
    if (role == "filler") {
      return below;
    }
    std::string sign = has(4) ? "*" : "";
    sign += has(1) ? "!" : "";
    if (has(9)) {
      sign += has(10) ? "-" : "+";
    }
    return role + " " + name + sign +
           (description.empty() || description == name ? "" : ": " + description) +
           (below.empty() ? "" : "(" + below + ")") + ";";
  }
  /// The last object of this name at or below this; null without one.
  [[nodiscard]] const Spoken* find(const std::string& what) const {
    const Spoken* found = name == what ? this : nullptr;
    for (const Spoken& child : children) {
      const Spoken* const below = child.find(what);
      found = below != nullptr ? below : found;
    }
    return found;
  }
  [[nodiscard]] bool has(unsigned bit) const { return ((state >> bit) & 1U) != 0; }
};

/// The bus of assistive technologies, found by way of the session's.
class SpokenBus {
 public:
  SpokenBus(const PrivateBus& session, const std::map<std::string, std::string>& environment)
      : launcher_({MARIGOLD_AT_SPI_BUS_LAUNCHER, "--launch-immediately"}, environment) {
    const BusObject launched{session.connect("session"), "org.a11y.Bus", "/org/a11y/bus",
                             "org.a11y.Bus"};
    QString address;
    (void)eventually([&] {
      address = launched.ask("GetAddress").toString();
      return address.startsWith("unix:");
    });
    QDBusConnection::disconnectFromBus("session");
    bus_.emplace(QDBusConnection::connectToBus(address, "spoken"));
  }
  SpokenBus(const SpokenBus&) = delete;
  SpokenBus& operator=(const SpokenBus&) = delete;
  ~SpokenBus() { QDBusConnection::disconnectFromBus("spoken"); }

  /// What all programs tell.
  [[nodiscard]] Spoken tree() const {
    return tree("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root");
  }
  /// Does what the object offers to do first; whether it did.
  [[nodiscard]] bool use(const Spoken& object) const {
    return BusObject{*bus_, object.service, object.path, "org.a11y.atspi.Action"}
        .ask("DoAction", {0})
        .toBool();
  }

 private:
  [[nodiscard]] Spoken tree(const QString& service, const QString& path) const {
    const BusObject told{*bus_, service, path, "org.a11y.atspi.Accessible"};
    Spoken object{.service = service,
                  .path = path,
                  .role = told.ask("GetRoleName").toString().toStdString(),
                  .name = told.property("Name").toString().toStdString(),
                  .description = told.property("Description").toString().toStdString(),
                  .state = qdbus_cast<QList<uint>>(told.ask("GetState")).value(0)};
    using Child = std::pair<QString, QDBusObjectPath>;
    for (const auto& [owner, child] : qdbus_cast<QList<Child>>(told.ask("GetChildren"))) {
      Spoken below = tree(owner, child.path());
      if (below.has(30) || below.role == "application") {
        object.children.push_back(std::move(below));
      }
    }
    return object;
  }

  ChildProcess launcher_;
  std::optional<QDBusConnection> bus_;
};

}  // namespace marigold::test
