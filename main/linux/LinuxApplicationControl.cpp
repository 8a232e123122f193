#include "LinuxApplicationControl.h"

#include <cstdlib>

#include <QtCore/QCoreApplication>

namespace marigold {

void LinuxApplicationControl::quit() {
  // Not quit(), which asks every window first, and one may refuse.
  QCoreApplication::exit(EXIT_SUCCESS);
}

}  // namespace marigold
