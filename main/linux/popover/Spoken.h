#pragma once

#include <QtGui/QAccessible>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

// What assistive technology is told of widgets that the toolkit knows nothing of.

namespace marigold {

/// Has `widget` exposed as `role`, by its accessible name and description.
void speakAs(QWidget& widget, QAccessible::Role role);

/// The same for a button that opens and closes what belongs to it; it is checked while that is
/// open.
void speakAsExpander(QWidget& button);

}  // namespace marigold
