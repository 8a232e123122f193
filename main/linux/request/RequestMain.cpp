// marigold-request: one HTTPS request for Marigold. It lives no longer than that takes, so that no
// copy of the token that a library makes does either.

#include <unistd.h>

#include "linux/request/HttpsRequest.h"

int main() {
  // At once: there is nothing left for anybody to tidy up.
  ::_exit(marigold::answerRequest({}));
}
