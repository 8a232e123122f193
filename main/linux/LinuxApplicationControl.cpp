#include "LinuxApplicationControl.h"

#include <QtCore/QCoreApplication>

namespace marigold {

void LinuxApplicationControl::quit() {
  QCoreApplication::quit();
}

}  // namespace marigold
