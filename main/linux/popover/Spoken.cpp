#include "linux/popover/Spoken.h"

#include <QtWidgets/QAbstractButton>
#include <QtWidgets/QAccessibleWidget>

namespace marigold {

namespace {

constexpr const char* roleProperty = "marigoldRole";
constexpr const char* expanderProperty = "marigoldExpander";

class AccessibleExpander final : public QAccessibleWidget {
 public:
  explicit AccessibleExpander(QAbstractButton& button)
      : QAccessibleWidget(&button, QAccessible::Button), button_(button) {}

  [[nodiscard]] QAccessible::State state() const override {
    QAccessible::State state = QAccessibleWidget::state();
    state.expandable = true;
    state.expanded = button_.isChecked();
    state.collapsed = !button_.isChecked();
    return state;
  }
  [[nodiscard]] QStringList actionNames() const override { return {pressAction()}; }
  void doAction(const QString& /*name*/) override { button_.click(); }

 private:
  QAbstractButton& button_;
};

QAccessibleInterface* makeAccessible(const QString& /*className*/, QObject* object) {
  if (!object->isWidgetType()) {
    return nullptr;
  }
  if (object->property(expanderProperty).toBool()) {
    return new AccessibleExpander(*qobject_cast<QAbstractButton*>(object));
  }
  const QVariant role = object->property(roleProperty);
  return role.isValid() ? new QAccessibleWidget(qobject_cast<QWidget*>(object),
                                                static_cast<QAccessible::Role>(role.toInt()))
                        : nullptr;
}

// While assistive technology listens, a widget is asked for as soon as it has a name, and what it
// was exposed as then is kept.
void expose(QWidget& widget, const char* property, const QVariant& value) {
  QAccessible::installFactory(makeAccessible);  // once, however often it is called
  widget.setProperty(property, value);
  if (!QAccessible::isActive()) {
    return;
  }
  if (QAccessibleInterface* const before = QAccessible::queryAccessibleInterface(&widget)) {
    QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(before));
  }
}

}  // namespace

void speakAs(QWidget& widget, QAccessible::Role role) {
  expose(widget, roleProperty, static_cast<int>(role));
}

void speakAsExpander(QWidget& button) {
  expose(button, expanderProperty, true);
}

}  // namespace marigold
