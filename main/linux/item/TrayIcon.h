#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QtCore/QRect>

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
  ~TrayIcon();

  /// Clicks, with the icon's area if it has one in the tray. Told when the button goes down, which
  /// is all that the toolkit tells.
  std::function<void(const StatusItemClick&, const std::optional<QRect>& area)> onClick;

  void setContent(const StatusItemContent& content);
  /// Absent while it has none in the tray.
  [[nodiscard]] std::optional<QRect> area() const;

 private:
  std::unique_ptr<QSystemTrayIcon> icon_;
  StatusItemContent content_;
};

}  // namespace marigold
