#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include <QtCore/QAbstractNativeEventFilter>
#include <QtCore/QObject>
#include <QtCore/QPoint>
#include <QtCore/QRect>

// What the toolkit does not tell of an X11 desktop, read from its own connection. On any other
// desktop, and without a running QGuiApplication, nothing is known, owned or told.

struct xcb_connection_t;

namespace marigold {

/// Where the content of `window` is, in pixels of the root window. While a window
/// manager frames a window that has just appeared, that may be anywhere.
[[nodiscard]] std::optional<QPoint> x11Place(std::uint32_t window);

/// Asks the window manager to have the content of `window` at `place`, in pixels of the root
/// window; it answers with where it then is, also where that is nothing new.
void x11Move(std::uint32_t window, QPoint place);

/// What panels leave of `screen`, in pixels of the root window.
[[nodiscard]] QRect x11WorkArea(const QRect& screen);

/// Has the window manager take `window` for the only one of its group. KWin hides the small windows
/// of a group while another program is active, unless there is but one. To be called before it is
/// shown.
void x11StandsAlone(std::uint32_t window);

/// Selections stand for the services of an X11 desktop: who offers one owns it.
inline constexpr const char* xembedTraySelection = "_NET_SYSTEM_TRAY_S0";
inline constexpr const char* compositorSelection = "_NET_WM_CM_S0";

/// Whether a service is offered, told as it comes and goes.
class X11Selection final : public QAbstractNativeEventFilter {
 public:
  /// `onChange` is called after `owned` changed.
  explicit X11Selection(const char* name, std::function<void()> onChange = {});

  [[nodiscard]] bool owned() const noexcept { return owned_; }

 private:
  bool nativeEventFilter(const QByteArray& type, void* message, qintptr* result) override;

  QObject context_;  // whose end drops what is still to be told
  std::function<void()> onChange_;
  std::uint32_t selection_ = 0;
  int eventType_ = 0;
  bool owned_ = false;
};

/// Tells, for as long as it lives, of mouse buttons that go down or up anywhere on the screen,
/// whichever window they are for. The window gets them all the same.
class X11Buttons final : public QAbstractNativeEventFilter {
 public:
  explicit X11Buttons(std::function<void(bool down)> onButton);
  X11Buttons(const X11Buttons&) = delete;
  X11Buttons& operator=(const X11Buttons&) = delete;
  ~X11Buttons() override;

 private:
  bool nativeEventFilter(const QByteArray& type, void* message, qintptr* result) override;
  static void select(xcb_connection_t* connection, std::uint32_t events);

  QObject context_;  // whose end drops what is still to be told
  std::function<void(bool down)> onButton_;
  int extension_ = 0;
};

}  // namespace marigold
