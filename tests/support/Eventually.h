#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

namespace marigold::test {

/// Turns the toolkit's loop until `holds` does, for some seconds at most; whether it then does.
template <class Condition>
bool eventually(Condition holds, double seconds = 20) {
  QTimer limit;
  limit.setSingleShot(true);
  limit.start(static_cast<int>(seconds * 1000));
  // Looked at after every event and, for what another program does, now and then.
  QTimer look;
  look.start(10);
  bool held = holds();
  while (!held && limit.isActive()) {
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    held = holds();
  }
  return held;
}

}  // namespace marigold::test
