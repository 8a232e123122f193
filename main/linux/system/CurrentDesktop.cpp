#include "linux/system/CurrentDesktop.h"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include <QtCore/QAbstractNativeEventFilter>
#include <QtGui/QGuiApplication>
#include <xcb/xcb.h>

namespace marigold {

namespace {

// What libxcb gives is the receiver's to free.
struct Free {
  void operator()(void* reply) const { std::free(reply); }  // NOLINT(*-no-malloc, *-owning-memory)
};
template <typename Reply>
using Owned = std::unique_ptr<Reply, Free>;

class RootWindowFilter final : public CurrentDesktop, public QAbstractNativeEventFilter {
 public:
  RootWindowFilter(xcb_connection_t* connection, std::function<void()> onChange)
      : connection_(connection), onChange_(std::move(onChange)) {
    constexpr std::string_view name = "_NET_CURRENT_DESKTOP";
    const Owned<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, name.size(), name.data()), nullptr));
    if (atom) {
      property_ = atom->atom;
    }
    shown_ = desktop();
    QCoreApplication::instance()->installNativeEventFilter(this);
  }

  bool nativeEventFilter(const QByteArray& /*eventType*/, void* message, qintptr*) override {
    constexpr std::uint8_t sentByProgram = 0x80;  // a bit that says who sent an event, not what
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    if ((event->response_type & ~sentByProgram) == XCB_PROPERTY_NOTIFY &&
        static_cast<const xcb_property_notify_event_t*>(message)->atom == property_) {
      look();
    }
    return false;
  }

 private:
  // Some window managers write the same number again whenever another window becomes active, and
  // one that is replaced takes it away for a moment.
  void look() {
    const auto before = shown_;
    if (const auto now = desktop()) {
      shown_ = now;
    }
    if (before && shown_ != before) {
      onChange_();
    }
  }

  // Nothing while no window manager says it.
  [[nodiscard]] std::optional<std::uint32_t> desktop() const {
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    const Owned<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 0, root, property_, XCB_ATOM_CARDINAL, 0, 1),
        nullptr));
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) != 4) {
      return std::nullopt;
    }
    return *static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
  }

  xcb_connection_t* connection_;
  std::function<void()> onChange_;
  xcb_atom_t property_ = XCB_ATOM_NONE;
  std::optional<std::uint32_t> shown_;
};

}  // namespace

std::unique_ptr<CurrentDesktop> CurrentDesktop::follow(std::function<void()> onChange) {
  const auto* application = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
  const auto* x11 = application == nullptr
                        ? nullptr
                        : application->nativeInterface<QNativeInterface::QX11Application>();
  // A platform without a screen answers, too, with no connection.
  xcb_connection_t* const connection = x11 == nullptr ? nullptr : x11->connection();
  if (connection == nullptr) {
    return nullptr;
  }
  return std::make_unique<RootWindowFilter>(connection, std::move(onChange));
}

}  // namespace marigold
