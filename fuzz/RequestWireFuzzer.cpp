// What the program and marigold-request say to each other is understood as it was meant, or not at
// all.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "RequestWire.h"

namespace {

void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace marigold;
  const std::span input(data, size);
  const std::string text(input.begin(), input.end());
  if (const auto answer = decodeAnswer(text, 1000)) {
    require(answer->body.size() <= 1000 && text.ends_with(answer->body));
    const auto again = decodeAnswer(encodeAnswer(*answer), 1000);
    require(again && again->status == answer->status && again->body == answer->body &&
            again->bodyIsCut == answer->bodyIsCut && again->retryAfter == answer->retryAfter);
  }
  if (const auto order = decodeRequest(text)) {
    const HTTPRequest& request = order->request;
    require(request.timeout > Seconds{0});
    if (const auto written = encodeRequest(request, order->proxy)) {
      const auto again = decodeRequest(written->expose());
      require(again && again->request.url == request.url && again->proxy == order->proxy &&
              again->request.headers == request.headers &&
              again->request.bearerToken.expose() == request.bearerToken.expose());
    }
  }
  return 0;
}
