#pragma once

#include <map>
#include <string>
#include <vector>

#include <QtWidgets/QWidget>

#include "linux/popover/SettingsRowWidget.h"

QT_BEGIN_NAMESPACE
class QVBoxLayout;
QT_END_NAMESPACE

namespace marigold {

/// The settings, section by section.
class SettingsPage final : public QWidget {
 public:
  SettingsPage(const Look& look, QWidget& parent);

  /// Shows `form`. Rows that stay keep their widgets, and with them the focus.
  void take(const SettingsForm& form);

 private:
  class Section;

  const Look& look_;
  std::vector<Section*> sections_;
  QVBoxLayout* layout_;
};

}  // namespace marigold
