#include "linux/request/RequestWire.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <utility>

namespace marigold {

namespace {

constexpr std::string_view requestForm = "marigold-request 1";

using Milliseconds = std::chrono::duration<std::int64_t, std::milli>;
constexpr Milliseconds longestTimeout = std::chrono::hours(1);

// The headers of an answer in the order in which they are written.
template <class Answer>
auto headers(Answer& answer) {
  return std::array{&answer.retryAfter, &answer.unifiedReset, &answer.unifiedFiveHourReset};
}

bool isControl(char c) {
  return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}

// Writes lines into memory that is kept from dumps and wiped.
class SecretLines {
 public:
  void add(std::initializer_list<std::string_view> parts) {
    for (const std::string_view part : parts) {
      isWhole_ = isWhole_ && std::ranges::none_of(part, isControl);
      put(part);
    }
    put("\n");
  }
  [[nodiscard]] std::optional<Secret> take() {
    return isWhole_ ? std::optional(std::move(text_)) : std::nullopt;
  }

 private:
  void put(std::string_view part) {
    isWhole_ = isWhole_ && part.size() <= text_.room().size();
    if (isWhole_) {
      std::ranges::copy(part, text_.room().begin());
      text_.grow(part.size());
    }
  }

  Secret text_ = Secret::withRoom(longestRequest);
  bool isWhole_ = true;
};

// Takes a text apart from its front.
class Lines {
 public:
  explicit Lines(std::string_view text) : rest_(text) {}

  [[nodiscard]] std::optional<std::string_view> line() { return until('\n'); }
  // A decimal number and the `end` behind it.
  template <class Number>
  [[nodiscard]] std::optional<Number> number(char end) {
    const std::string_view digits = until(end).value_or("");
    Number value = 0;
    const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const bool isAll = error == std::errc() && stop == digits.data() + digits.size();
    return isAll ? std::optional(value) : std::nullopt;
  }
  [[nodiscard]] std::string_view rest() const { return rest_; }

 private:
  std::optional<std::string_view> until(char end) {
    const std::size_t length = rest_.find(end);
    if (length == std::string_view::npos) {
      return std::nullopt;
    }
    const std::string_view found = rest_.substr(0, length);
    rest_.remove_prefix(length + 1);
    return found;
  }

  std::string_view rest_;
};

}  // namespace

std::optional<Secret> encodeRequest(const HTTPRequest& request, const HTTPSProxy& proxy) {
  if (request.method != "GET" || request.bearerToken.isEmpty()) {
    return std::nullopt;
  }
  SecretLines lines;
  lines.add({requestForm});
  lines.add({std::to_string(std::chrono::ceil<Milliseconds>(request.timeout).count())});
  lines.add({std::to_string(request.longestBody)});
  lines.add({request.url});
  lines.add({proxy.url});
  lines.add({proxy.exceptions});
  lines.add({request.bearerToken.expose()});
  for (const auto& [name, value] : request.headers) {
    lines.add({name, ": ", value});
  }
  lines.add({});  // else a request that is cut off would go unnoticed
  return lines.take();
}

std::optional<RequestOrder> decodeRequest(std::string_view text) {
  Lines lines(text);
  if (lines.line() != requestForm) {
    return std::nullopt;
  }
  const auto timeout = lines.number<Milliseconds::rep>('\n');
  const auto longestBody = lines.number<std::size_t>('\n');
  const auto url = lines.line();
  const auto proxy = lines.line();
  const auto exceptions = lines.line();
  const auto token = lines.line();
  const bool isWhole = timeout && longestBody && url && proxy && exceptions && token;
  if (!isWhole || *timeout <= 0 || *timeout > longestTimeout.count() || token->empty()) {
    return std::nullopt;
  }
  RequestOrder order{.request = {.method = "GET",
                                 .url = std::string(*url),
                                 .bearerToken = Secret(*token),
                                 .headers = {},
                                 .timeout = Milliseconds{*timeout},
                                 .longestBody = *longestBody},
                     .proxy = {.url = std::string(*proxy), .exceptions = std::string(*exceptions)}};
  for (auto header = lines.line(); header; header = lines.line()) {
    if (header->empty()) {
      return lines.rest().empty() ? std::optional(std::move(order)) : std::nullopt;
    }
    const std::size_t colon = header->find(": ");
    if (colon == std::string_view::npos) {
      return std::nullopt;
    }
    order.request.headers.emplace_back(header->substr(0, colon), header->substr(colon + 2));
  }
  return std::nullopt;
}

std::string encodeAnswer(const HTTPAnswer& answer) {
  std::string text = std::to_string(answer.status) + " " + std::to_string(answer.body.size()) +
                     (answer.bodyIsCut ? " cut\n" : " whole\n");
  for (const auto* header : headers(answer)) {
    // A value cannot hold a line end, where its header would have ended.
    text += *header ? "+" + **header + "\n" : "-\n";
  }
  return text + answer.body;
}

std::optional<HTTPAnswer> decodeAnswer(std::string_view text, std::size_t longestBody) {
  Lines lines(text);
  const auto status = lines.number<int>(' ');
  const auto length = lines.number<std::size_t>(' ');
  const auto extent = lines.line();
  if (!status || *status < 100 || *status > 999 || !length || *length > longestBody ||
      (extent != "whole" && extent != "cut")) {
    return std::nullopt;
  }
  HTTPAnswer answer{.status = *status, .bodyIsCut = extent == "cut"};
  for (auto* header : headers(answer)) {
    const auto line = lines.line();
    if (!line || (line != "-" && !line->starts_with('+'))) {
      return std::nullopt;
    }
    if (line->starts_with('+')) {
      *header = line->substr(1);
    }
  }
  if (lines.rest().size() != *length) {
    return std::nullopt;
  }
  answer.body = lines.rest();
  return answer;
}

}  // namespace marigold
