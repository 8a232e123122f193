// What the program and marigold-request say to each other is understood as it was meant, or not at
// all.

#include <string>

#include "Fuzzed.h"
#include "linux/request/RequestWire.h"

namespace marigold::fuzz {

void examine(std::string_view input) {
  if (const auto answer = decodeAnswer(input, 1000)) {
    require(answer->body.size() <= 1000 && input.ends_with(answer->body));
    const auto again = decodeAnswer(encodeAnswer(*answer), 1000);
    require(again && again->status == answer->status && again->body == answer->body &&
            again->bodyIsCut == answer->bodyIsCut && again->retryAfter == answer->retryAfter);
  }
  if (const auto order = decodeRequest(input)) {
    const HTTPRequest& request = order->request;
    require(request.timeout > Seconds{0});
    if (const auto written = encodeRequest(request, order->proxy)) {
      const auto again = decodeRequest(written->expose());
      require(again && again->request.url == request.url && again->proxy == order->proxy &&
              again->request.headers == request.headers &&
              again->request.bearerToken.expose() == request.bearerToken.expose());
    }
  }
}

}  // namespace marigold::fuzz
