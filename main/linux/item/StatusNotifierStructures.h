#pragma once

#include <tuple>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

#include "linux/item/DBusStructure.h"

// The structures of org.kde.StatusNotifierItem, with their signatures.

namespace marigold {

/// (iiay): width, height and ARGB pixels, not premultiplied by the protocol, each in network byte
/// order.
struct DBusPixmap {
  int width = 0;
  int height = 0;
  QByteArray pixels;

  bool operator==(const DBusPixmap&) const = default;

  static constexpr std::tuple fields{&DBusPixmap::width, &DBusPixmap::height, &DBusPixmap::pixels};
};

/// (sa(iiay)ss): an icon by name or as pixmaps, a title and a text.
struct DBusToolTip {
  QString iconName;
  QList<DBusPixmap> pixmaps;
  QString title;
  QString text;

  bool operator==(const DBusToolTip&) const = default;

  static constexpr std::tuple fields{&DBusToolTip::iconName, &DBusToolTip::pixmaps,
                                     &DBusToolTip::title, &DBusToolTip::text};
};

}  // namespace marigold
