#include "linux/request/HttpsRequest.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <expected>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include <curl/curl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "base/AsciiText.h"
#include "linux/request/RequestWire.h"

namespace marigold {

namespace {

// Keeps what this process holds from everybody else, the copies included that libraries make.
void closeOff() {
  // No dump then, to a file or to a program that handles them, and nobody may attach.
  (void)::prctl(PR_SET_DUMPABLE, 0);
  // Nobody waits for the answer any more when the program is gone.
  (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
  // Libraries look there for authorities, hosts, proxies and places to log to. There are no
  // threads.
  ::clearenv();  // NOLINT(concurrency-mt-unsafe)
}

std::optional<RequestOrder> readOrder() {
  Secret text = Secret::withRoom(longestRequest + 1);
  while (!text.room().empty()) {
    const ssize_t count = ::read(STDIN_FILENO, text.room().data(), text.room().size());
    if (count == 0) {
      return decodeRequest(text.expose());
    }
    if (count < 0 && errno != EINTR) {
      break;
    }
    text.grow(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  return std::nullopt;
}

bool writeWhole(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data(), text.size());
    if (count < 0 && errno != EINTR) {
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  return true;
}

// A proxy that is not spoken to by HTTP.
bool isForeign(std::string_view proxy) {
  const std::string scheme = lowercased(proxy.substr(0, proxy.find("://")));
  return scheme.size() < proxy.size() && scheme != "http" && scheme != "https";
}

// Without a host, which the library refuses unless the request's host is an exception.
constexpr const char* noProxy = "http://";

struct EndHandle {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};

// A list of lines for the library, wiped.
class LineList {
 public:
  LineList() = default;
  LineList(const LineList&) = delete;
  LineList& operator=(const LineList&) = delete;
  ~LineList() {
    for (const curl_slist* line = first_; line != nullptr; line = line->next) {
      wipe(line->data, std::strlen(line->data));
    }
    curl_slist_free_all(first_);
  }

  // The line of these parts. False when there is no memory for it.
  [[nodiscard]] bool add(std::initializer_list<std::string_view> parts) {
    std::size_t size = 1;
    for (const std::string_view part : parts) {
      size += part.size();
    }
    Secret line = Secret::withRoom(size);
    const std::span<char> room = line.room();
    for (const std::string_view part : parts) {
      std::ranges::copy(part, line.room().begin());
      line.grow(part.size());
    }
    line.room().front() = '\0';
    curl_slist* const all = curl_slist_append(first_, room.data());
    first_ = all == nullptr ? first_ : all;
    return all != nullptr;
  }
  [[nodiscard]] curl_slist* first() const { return first_; }

 private:
  curl_slist* first_ = nullptr;
};

// One request on its way. An option that this build of the library does not know means none is
// sent.
class Exchange {
 public:
  Exchange(RequestOrder order, const RequestReach& reach)
      : longestBody_(order.request.longestBody),
        proxyIsForeign_(isForeign(order.proxy.url)),
        isReady_(handle_ != nullptr) {
    const HTTPRequest& request = order.request;
    const auto milliseconds = static_cast<long>(request.timeout / Seconds{0.001});
    isReady_ = isReady_ && request.url.starts_with("https://");
    addHeaders(request);

    set(CURLOPT_URL, request.url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "https");
    set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    set(CURLOPT_HTTPGET, 1L);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_HTTPHEADER, headers_.first());
    set(CURLOPT_HEADEROPT, static_cast<long>(CURLHEADER_SEPARATE));  // none of them to a proxy
    set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));

    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));  // or newer
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_SSL_SESSIONID_CACHE, 0L);
    // By CONNECT, as always for HTTPS.
    set(CURLOPT_PROXY, proxyIsForeign_ ? noProxy : order.proxy.url.c_str());
    set(CURLOPT_NOPROXY, order.proxy.exceptions.c_str());
    set(CURLOPT_PROXY_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_PROXY_SSL_VERIFYPEER, 1L);
    set(CURLOPT_PROXY_SSL_VERIFYHOST, 2L);

    set(CURLOPT_TIMEOUT_MS, milliseconds);
    set(CURLOPT_CONNECTTIMEOUT_MS, milliseconds);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);  // without waiting for the name to be resolved
    set(CURLOPT_HEADERFUNCTION, curl_write_callback{&takeHeader});
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, curl_write_callback{&takeBody});
    set(CURLOPT_WRITEDATA, this);

    if (!reach.authorities.empty()) {
      set(CURLOPT_CAINFO, reach.authorities.c_str());
    }
    if (!reach.connectTo.empty()) {
      isReady_ = isReady_ && connectTo_.add({reach.connectTo});
      set(CURLOPT_CONNECT_TO, connectTo_.first());
    }
  }
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  ~Exchange() = default;

  [[nodiscard]] std::expected<HTTPAnswer, NoAnswer> run() {
    if (!isReady_) {
      return std::unexpected(NoAnswer::whatever);
    }
    const CURLcode code = curl_easy_perform(handle_.get());
    long status = 0;
    const bool isAnswered = code == CURLE_OK || (code == CURLE_WRITE_ERROR && isCut_);
    if (!isAnswered ||
        curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status) != CURLE_OK) {
      return std::unexpected(whyNone(code));
    }
    return HTTPAnswer{.status = static_cast<int>(status),
                      .retryAfter = header("Retry-After"),
                      .unifiedReset = header("anthropic-ratelimit-unified-reset"),
                      .unifiedFiveHourReset = header("anthropic-ratelimit-unified-5h-reset"),
                      .body = std::move(body_),
                      .bodyIsCut = isCut_};
  }

 private:
  template <class Value>
  void set(CURLoption option, Value value) {
    isReady_ = isReady_ && curl_easy_setopt(handle_.get(), option, value) == CURLE_OK;
  }

  [[nodiscard]] NoAnswer whyNone(CURLcode code) {
    if (proxyIsForeign_ && code == CURLE_COULDNT_RESOLVE_PROXY) {
      return NoAnswer::proxyUnknown;
    }
    constexpr long loginRequired = 407;
    long proxyStatus = 0;  // 0 without a proxy, or one that says nothing
    curl_easy_getinfo(handle_.get(), CURLINFO_HTTP_CONNECTCODE, &proxyStatus);
    if (proxyStatus == loginRequired) {
      return NoAnswer::proxyLogin;
    }
    return proxyStatus >= 300 ? NoAnswer::proxyRefusal : NoAnswer::whatever;
  }

  void addHeaders(const HTTPRequest& request) {
    isReady_ = isReady_ && headers_.add({"Authorization: Bearer ", request.bearerToken.expose()});
    for (const auto& [name, value] : request.headers) {
      isReady_ = isReady_ && headers_.add({name, ": ", value});
    }
    isReady_ = isReady_ && headers_.add({"Accept:"});  // which the library would send by itself
  }

  static std::size_t takeHeader(char* /*bytes*/, std::size_t size, std::size_t count,
                                void* exchange) {
    auto& self = *static_cast<Exchange*>(exchange);
    self.headerSize_ += size * count;
    return self.headerSize_ <= longestHeader ? size * count : 0;
  }

  // NOLINTNEXTLINE(readability-non-const-parameter): the library's type
  static std::size_t takeBody(char* bytes, std::size_t size, std::size_t count, void* exchange) {
    auto& self = *static_cast<Exchange*>(exchange);
    const std::size_t taken = std::min(size * count, self.longestBody_ - self.body_.size());
    self.body_.append(bytes, taken);
    self.isCut_ = taken < size * count;
    return taken;  // fewer than there are end the exchange
  }

  [[nodiscard]] std::optional<std::string> header(const char* name) const {
    curl_header* found = nullptr;
    if (curl_easy_header(handle_.get(), name, 0, CURLH_HEADER, -1, &found) != CURLHE_OK) {
      return std::nullopt;
    }
    return found->value;
  }

  // Read by the handle, so they outlive it.
  LineList headers_;
  LineList connectTo_;
  std::unique_ptr<CURL, EndHandle> handle_{curl_easy_init()};
  std::size_t longestBody_;
  bool proxyIsForeign_;
  bool isReady_;
  std::size_t headerSize_ = 0;
  std::string body_;
  bool isCut_ = false;
};

}  // namespace

int answerRequest(const RequestReach& reach) {
  closeOff();
  auto order = readOrder();
  if (!order || curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
    return static_cast<int>(NoAnswer::whatever);
  }
  const auto answer = Exchange(*std::move(order), reach).run();
  if (!answer) {
    return static_cast<int>(answer.error());
  }
  return writeWhole(encodeAnswer(*answer)) ? EXIT_SUCCESS : static_cast<int>(NoAnswer::whatever);
}

}  // namespace marigold
