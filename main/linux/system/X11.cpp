#include "linux/system/X11.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include <QtGui/QGuiApplication>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>
#include <xcb/xinput.h>

namespace marigold {

namespace {

struct Free {
  void operator()(void* memory) const { std::free(memory); }  // NOLINT(*-no-malloc): is xcb's way
};
template <class Reply>
using Owned = std::unique_ptr<Reply, Free>;

xcb_connection_t* toolkitConnection() {
  if (qGuiApp == nullptr) {
    return nullptr;
  }
  const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  return x11 != nullptr ? x11->connection() : nullptr;
}

// The desktop's only one: several screens are one to X11 for a long time now.
xcb_window_t root(xcb_connection_t* connection) {
  return xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
}

xcb_atom_t atomNamed(xcb_connection_t* connection, std::string_view name) {
  const Owned<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
      connection,
      xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data()),
      nullptr));
  return atom ? atom->atom : xcb_atom_t{XCB_ATOM_NONE};
}

constexpr std::uint32_t lastButton = 3;  // left, middle, right; those after it are wheels

}  // namespace

std::optional<QPoint> x11Place(std::uint32_t window) {
  xcb_connection_t* const connection = toolkitConnection();
  if (connection == nullptr) {
    return std::nullopt;
  }
  const Owned<xcb_translate_coordinates_reply_t> place(xcb_translate_coordinates_reply(
      connection, xcb_translate_coordinates(connection, window, root(connection), 0, 0), nullptr));
  return place ? std::optional(QPoint(place->dst_x, place->dst_y)) : std::nullopt;
}

std::optional<QRect> x11WorkArea() {
  xcb_connection_t* const connection = toolkitConnection();
  if (connection == nullptr) {
    return std::nullopt;
  }
  // Of the first virtual desktop: panels are on all of them.
  std::array<std::uint32_t, 4> area{};
  const Owned<xcb_get_property_reply_t> property(xcb_get_property_reply(
      connection,
      xcb_get_property(connection, 0, root(connection), atomNamed(connection, "_NET_WORKAREA"),
                       XCB_ATOM_CARDINAL, 0, area.size()),
      nullptr));
  if (!property || xcb_get_property_value_length(property.get()) != int{sizeof area}) {
    return std::nullopt;
  }
  std::memcpy(area.data(), xcb_get_property_value(property.get()), sizeof area);
  const auto [x, y, width, height] = area;
  return QRect(static_cast<int>(x), static_cast<int>(y), static_cast<int>(width),
               static_cast<int>(height));
}

void x11StandsAlone(std::uint32_t window) {
  xcb_connection_t* const connection = toolkitConnection();
  if (connection == nullptr) {
    return;
  }
  // WM_HINTS as ICCCM has it, 4.1.2.4.
  constexpr std::uint32_t namesGroup = 1U << 6U;
  std::array<std::uint32_t, 9> hints{};
  auto& flags = hints.front();
  auto& group = hints.back();
  const Owned<xcb_get_property_reply_t> before(
      xcb_get_property_reply(connection,
                             xcb_get_property(connection, 0, window, XCB_ATOM_WM_HINTS,
                                              XCB_ATOM_WM_HINTS, 0, hints.size()),
                             nullptr));
  if (before && xcb_get_property_value_length(before.get()) == int{sizeof hints}) {
    std::memcpy(hints.data(), xcb_get_property_value(before.get()), sizeof hints);
  }
  flags |= namesGroup;
  group = window;
  xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_HINTS,
                      XCB_ATOM_WM_HINTS, 32, hints.size(), hints.data());
}

X11Selection::X11Selection(const char* name, std::function<void()> onChange)
    : onChange_(std::move(onChange)) {
  xcb_connection_t* const connection = toolkitConnection();
  if (connection == nullptr) {
    return;
  }
  const auto* const extension = xcb_get_extension_data(connection, &xcb_xfixes_id);
  selection_ = atomNamed(connection, name);
  if (selection_ == XCB_ATOM_NONE || extension == nullptr || extension->present == 0) {
    return;
  }
  eventType_ = extension->first_event + XCB_XFIXES_SELECTION_NOTIFY;
  // Asked for before the owner, so that no change is missed; never taken back, since the toolkit
  // asks for some of the same on this connection.
  xcb_xfixes_select_selection_input(connection, root(connection), selection_,
                                    XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                        XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                        XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
  const Owned<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
      connection, xcb_get_selection_owner(connection, selection_), nullptr));
  owned_ = owner && owner->owner != XCB_NONE;
  qGuiApp->installNativeEventFilter(this);
}

bool X11Selection::nativeEventFilter(const QByteArray& /*type*/, void* message,
                                     qintptr* /*result*/) {
  const auto* const event = static_cast<const xcb_generic_event_t*>(message);
  if ((event->response_type & 0x7F) == eventType_) {
    const auto* const change = static_cast<const xcb_xfixes_selection_notify_event_t*>(message);
    // When the owner is gone, the event still names its window.
    const bool owned = change->subtype == XCB_XFIXES_SELECTION_EVENT_SET_SELECTION_OWNER &&
                       change->owner != XCB_NONE;
    if (change->selection == selection_ && std::exchange(owned_, owned) != owned && onChange_) {
      // Later, because who is told may end this object.
      QMetaObject::invokeMethod(&context_, onChange_, Qt::QueuedConnection);
    }
  }
  return false;
}

X11Buttons::X11Buttons(std::function<void(bool)> onButton) : onButton_(std::move(onButton)) {
  xcb_connection_t* const connection = toolkitConnection();
  if (connection == nullptr) {
    return;
  }
  const auto* const extension = xcb_get_extension_data(connection, &xcb_input_id);
  if (extension == nullptr || extension->present == 0) {
    return;
  }
  extension_ = extension->major_opcode;
  select(connection,
         XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_RELEASE);
  qGuiApp->installNativeEventFilter(this);
}

X11Buttons::~X11Buttons() {
  if (xcb_connection_t* const connection = toolkitConnection(); connection != nullptr) {
    select(connection, 0);
  }
}

// The toolkit's own selection is for all devices, so that this one, for master devices, is apart.
void X11Buttons::select(xcb_connection_t* connection, std::uint32_t events) {
  const struct {
    xcb_input_event_mask_t head;
    std::uint32_t events;
  } mask = {.head = {.deviceid = XCB_INPUT_DEVICE_ALL_MASTER, .mask_len = 1}, .events = events};
  xcb_input_xi_select_events(connection, root(connection), 1, &mask.head);
  xcb_flush(connection);
}

bool X11Buttons::nativeEventFilter(const QByteArray& /*type*/, void* message, qintptr* /*result*/) {
  const auto* const event = static_cast<const xcb_ge_generic_event_t*>(message);
  if ((event->response_type & 0x7F) != XCB_GE_GENERIC || event->extension != extension_) {
    return false;
  }
  const bool down = event->event_type == XCB_INPUT_RAW_BUTTON_PRESS;
  if (!down && event->event_type != XCB_INPUT_RAW_BUTTON_RELEASE) {
    return false;
  }
  const auto* const button = static_cast<const xcb_input_raw_button_press_event_t*>(message);
  if (button->detail <= lastButton) {
    QMetaObject::invokeMethod(&context_, [this, down] { onButton_(down); }, Qt::QueuedConnection);
  }
  return true;
}

}  // namespace marigold
