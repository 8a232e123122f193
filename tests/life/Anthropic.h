#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "claude/ClaudeProvider.h"
#include "life/Luck.h"
#include "support/ManualEventLoop.h"

namespace marigold::test {

/// When Anthropic may be asked, by the rules as they are written down. Times are seconds on the
/// continuous clock.
struct Pace {
  // Who asks. What is greater stands for the shortest time since the last success.
  static constexpr double user = 0;
  static constexpr double retry = -1;
  static constexpr double never = -1e18;

  double success = never;
  double server = never;   // the server's hold
  double refused = never;  // one about the token
  double other = never;
  double login = never;  // no read of it before
  bool latched = false;
  int throttled = 0;
  int refusals = 0;
  int failedReads = 0;
  std::optional<ProviderSnapshot> before;  // the last two good readings in a row
  std::optional<ProviderSnapshot> last;

  [[nodiscard]] bool allows(double now, double asker) const {
    now += 1e-6;  // of rounding
    if (asker == retry || now < server) {
      return now >= server;
    }
    return !latched && now >= login && now >= other && (asker == user || now >= refused) &&
           now - success >= asker;
  }
  // Every 15 minutes, or twice as often while usage rises; up to 15 % sooner.
  [[nodiscard]] double background() const {
    return 0.85 * (before && last && last->percent("5h") > before->percent("5h") ? 450 : 900);
  }
  void see(const std::optional<ProviderSnapshot>& told) {
    if (!told || told->health != Health::ok() || !told->isUsable()) {
      before = last = std::nullopt;
    } else if (!last || told->capturedAt > last->capturedAt) {
      before = std::exchange(last, told);
    }
  }
  void hold(double& which, double until) {
    server = refused = other = never;
    which = until;
  }
  void failRead(double now, KeychainReadError::Kind kind) {
    failedReads = kind == KeychainReadError::Kind::locked ? 0 : failedReads + 1;
    login = now + std::min(60 * std::exp2(std::max(failedReads, 1) - 1), 900.0);
    latched = kind == KeychainReadError::Kind::timedOut;
  }
  void readLogin() {
    login = never;
    latched = false;
    failedReads = 0;
  }
  void hearNothing(double now, bool loginExpired) {
    const bool stays = now < refused;
    hold(stays || loginExpired ? refused : other, std::max(stays ? refused : never, now + 180));
  }
  void hear(double now, int status, double asked) {
    if (status == 401) {
      hold(refused, now + std::min(300 * std::exp2(refusals++), 3600.0));
    } else {
      hold(server, now + std::clamp(std::max(900 * std::exp2(throttled++), asked), 900.0, 7200.0));
    }
  }
  // No `holdOff` where it tells usage.
  void hearAnswer(double now, double holdOff) {
    throttled = refusals = 0;
    hold(other, now + holdOff);
    success = holdOff > 0 ? success : now;
  }
};

/// How a read of the login and the request after it go.
struct Weather {
  std::optional<KeychainReadError::Kind> readError;
  bool expired = false;  // the login
  int status = 200;      // 0: no answer
  std::string_view body;
  double holdOff = 0;
  bool endsSuccess = false;
};
inline constexpr std::array weathers{
    Weather{},
    Weather{.readError = KeychainReadError::Kind::locked},
    Weather{.readError = KeychainReadError::Kind::timedOut},
    Weather{.readError = KeychainReadError::Kind::decode},
    Weather{.status = 0},
    Weather{.expired = true, .status = 0},
    Weather{.status = 401},
    Weather{.status = 429},
    Weather{.status = 503},
    Weather{.body = "<html>", .holdOff = 180},
    Weather{.body = R"({"limits":[]})", .holdOff = 180, .endsSuccess = true},
    Weather{.body = R"({"five_hour":{"utilization":-9}})", .holdOff = 900}};

/// The login and Anthropic's server, in changing weather. Finds fault with those who ask too soon.
class Anthropic final : public HTTPTransport {
 public:
  Anthropic(Luck& luck, std::function<void(bool holds, const std::string& fault)> expect)
      : luck_(luck), expect_(std::move(expect)) {}

  Pace pace;
  std::vector<double> asked;   ///< who asked since nothing was under way
  bool offAndSettled = false;  ///< Claude is off and nothing under way since
  bool isOff = false;          ///< Claude is
  int reads = 0;               ///< of the login
  std::optional<double> said;  ///< the percentage of the last usable answer
  ManualEventLoop* loop = nullptr;

  [[nodiscard]] double now() const { return Seconds(loop->now().time_since_epoch()).count(); }
  void clearUp() { weather_ = weathers.data(); }
  void changeWeather() { weather_ = luck_.chance(0.5) ? weathers.data() : &luck_.of(weathers); }
  /// A new start of the program, which knows nothing of before.
  void beginAnew(ManualEventLoop& its) {
    loop = &its;
    pace = {};
    asked.clear();
    offAndSettled = false;
    said.reset();
  }
  void forget() {
    pace.success = Pace::never;
    pace.see({});
    said.reset();
  }

  std::expected<ClaudeCredentials, KeychainReadError> readLogin() {
    expect_(!offAndSettled, "the login was read although Claude is off");
    asked.push_back(pace.background());
    expect_(std::ranges::any_of(asked, [&](double asker) { return pace.allows(now(), asker); }),
            "asked " + std::to_string(now() - pace.success) + " s after the last success");
    asked.pop_back();
    ++reads;
    if (weather_->readError) {
      pace.failRead(now(), *weather_->readError);
      return std::unexpected(KeychainReadError{.kind = *weather_->readError});
    }
    pace.readLogin();
    ClaudeCredentials login;
    login.claudeAiOauth = {.accessToken = Secret("token"),
                           .expiresAtMillis = weather_->expired ? 0 : 1e13};
    return login;
  }

  std::optional<HTTPAnswer> send(HTTPRequest /*request*/) override {
    HTTPAnswer answer{.status = weather_->status, .body = std::string(weather_->body)};
    if (answer.status == 0) {
      pace.hearNothing(now(), weather_->expired);
      return {};
    }
    if (answer.status != 200) {
      const int wait = answer.status == 429 ? luck_.below(9000) : 0;
      (luck_.chance(0.5) ? answer.retryAfter : answer.unifiedReset) = std::to_string(wait);
      pace.hear(now(), answer.status, wait);
      return answer;
    }
    pace.hearAnswer(now(), weather_->holdOff);
    if (!weather_->body.empty()) {
      pace.success = weather_->endsSuccess ? Pace::never : pace.success;
      return answer;
    }
    const double percent =
        luck_.chance(0.5) ? std::min(said.value_or(0) + luck_.below(5), 100.0) : luck_.below(100);
    pace.success = isOff ? Pace::never : pace.success;
    said = isOff ? said : percent;
    answer.body = R"({"five_hour":{"utilization":)" + std::to_string(percent) +
                  R"(,"resets_at":")" + isoText(loop->date() + Seconds{1.8 * luck_.below(10'000)}) +
                  "\"}}";
    return answer;
  }
  void stop() override {}

 private:
  Luck& luck_;
  std::function<void(bool, const std::string&)> expect_;
  const Weather* weather_ = weathers.data();
};

}  // namespace marigold::test
