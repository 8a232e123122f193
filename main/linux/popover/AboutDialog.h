#pragma once

#include <memory>

#include <QtWidgets/QDialog>

#include "ports/ApplicationControl.h"

namespace marigold {

/// A window that says this and closes with Escape; not shown yet.
[[nodiscard]] std::unique_ptr<QDialog> makeAboutDialog(const AboutPanel& about);

}  // namespace marigold
