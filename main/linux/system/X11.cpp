#include "linux/system/X11.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include <QtCore/QSize>
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

xcb_get_property_cookie_t ask(xcb_connection_t* connection, xcb_window_t window,
                              xcb_atom_t property, std::uint32_t mostValues) {
  return xcb_get_property(connection, 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0,
                          mostValues);
}

// The values of a property; none where there is no such property.
std::vector<std::uint32_t> answered(xcb_connection_t* connection,
                                    xcb_get_property_cookie_t question) {
  const Owned<xcb_get_property_reply_t> reply(
      xcb_get_property_reply(connection, question, nullptr));
  std::vector<std::uint32_t> values(reply && reply->format == 32 ? reply->value_len : 0);
  if (!values.empty()) {
    std::memcpy(values.data(), xcb_get_property_value(reply.get()),
                values.size() * sizeof values.front());
  }
  return values;
}

// _NET_WM_STRUT_PARTIAL: how deep a panel is at the left, right, top and bottom edge of the
// desktop, then for each edge where along it the panel begins and ends.
constexpr std::uint32_t strutLength = 12;

void leaveOut(QRect& area, const std::vector<std::uint32_t>& strut, const QSize& desktop) {
  const auto value = [&](std::size_t i) {
    return static_cast<int>(std::min<std::uint32_t>(strut[i], INT16_MAX));
  };
  const QRect left(QPoint(0, value(4)), QPoint(value(0) - 1, value(5)));
  const QRect right(QPoint(desktop.width() - value(1), value(6)),
                    QPoint(desktop.width() - 1, value(7)));
  const QRect top(QPoint(value(8), 0), QPoint(value(9), value(2) - 1));
  const QRect bottom(QPoint(value(10), desktop.height() - value(3)),
                     QPoint(value(11), desktop.height() - 1));
  // No panel takes half of a screen: one that seems to is on another, further inside.
  const auto isWide = [&](const QRect& panel) {
    return panel.intersects(area) && 2 * (panel & area).width() < area.width();
  };
  const auto isHigh = [&](const QRect& panel) {
    return panel.intersects(area) && 2 * (panel & area).height() < area.height();
  };
  if (isWide(left)) {
    area.setLeft(left.right() + 1);
  }
  if (isWide(right)) {
    area.setRight(right.left() - 1);
  }
  if (isHigh(top)) {
    area.setTop(top.bottom() + 1);
  }
  if (isHigh(bottom)) {
    area.setBottom(bottom.top() - 1);
  }
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

void x11Move(std::uint32_t window, QPoint place) {
  if (xcb_connection_t* const connection = toolkitConnection()) {
    const std::array<std::int32_t, 2> values{place.x(), place.y()};
    xcb_configure_window(connection, window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y,
                         values.data());
    xcb_flush(connection);
  }
}

QRect x11WorkArea(const QRect& screen) {
  xcb_connection_t* const connection = toolkitConnection();
  if (connection == nullptr) {
    return screen;
  }
  const Owned<xcb_get_geometry_reply_t> desktop(
      xcb_get_geometry_reply(connection, xcb_get_geometry(connection, root(connection)), nullptr));
  constexpr std::uint32_t mostWindows = 1000;
  const xcb_atom_t list = atomNamed(connection, "_NET_CLIENT_LIST");
  const xcb_atom_t panels = atomNamed(connection, "_NET_WM_STRUT_PARTIAL");
  const std::vector<xcb_window_t> windows =
      answered(connection, ask(connection, root(connection), list, mostWindows));
  std::vector<xcb_get_property_cookie_t> questions;
  questions.reserve(windows.size());
  for (const xcb_window_t window : windows) {
    questions.push_back(ask(connection, window, panels, strutLength));
  }
  QRect area = screen;
  for (const xcb_get_property_cookie_t question : questions) {
    const std::vector<std::uint32_t> strut = answered(connection, question);
    if (strut.size() == strutLength && desktop) {
      leaveOut(area, strut, QSize(desktop->width, desktop->height));
    }
  }
  return area;
}

void x11StandsAlone(std::uint32_t window) {
  xcb_connection_t* const connection = toolkitConnection();
  if (connection == nullptr) {
    return;
  }
  // WM_HINTS as ICCCM has it, 4.1.2.4.
  constexpr std::uint32_t namesGroup = 1U << 6U;
  constexpr std::size_t length = 9;
  std::vector<std::uint32_t> hints =
      answered(connection, ask(connection, window, XCB_ATOM_WM_HINTS, length));
  hints.resize(length);
  hints.front() |= namesGroup;
  hints.back() = window;
  xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_HINTS,
                      XCB_ATOM_WM_HINTS, 32, length, hints.data());
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
