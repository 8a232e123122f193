#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QtCore/qglobal.h>

#include "ports/StatusItem.h"

QT_BEGIN_NAMESPACE
class QSystemTrayIcon;
QT_END_NAMESPACE

namespace marigold {

/// The status item as a square icon in an XEmbed tray, the kind that X11 desktops have without a
/// StatusNotifier watcher. To be made only while there is no such watcher and `xembedTraySelection`
/// is owned: the toolkit decides at the first icon of a process for which of both kinds it makes
/// icons, and stays with it.
class TrayIcon final {
 public:
  TrayIcon();
  TrayIcon(const TrayIcon&) = delete;
  TrayIcon& operator=(const TrayIcon&) = delete;
  TrayIcon(TrayIcon&&) = delete;
  TrayIcon& operator=(TrayIcon&&) = delete;
  ~TrayIcon();

  /// Clicks, at the middle of the icon. Told when the button goes down, which is all that the
  /// toolkit tells.
  std::function<void(const StatusItemClick&)> onClick;

  void setContent(const StatusItemContent& content);
  /// The middle of the icon; absent while it has no place in the tray.
  [[nodiscard]] std::optional<Point> place() const;

 private:
  std::unique_ptr<QSystemTrayIcon> icon_;
  StatusItemContent content_;
};

}  // namespace marigold
