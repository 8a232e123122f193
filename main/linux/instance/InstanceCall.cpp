#include "linux/instance/InstanceCall.h"

#include <cstdlib>
#include <string>

#include <poll.h>

#include "app/InstanceAnswers.h"
#include "linux/instance/Conversation.h"
#include "linux/instance/StatusCommand.h"
#include "linux/system/StandardErrorLog.h"

namespace marigold {

namespace {

// An instance that has just been started answers once it has tried display and bus, each of which
// may take seconds.
constexpr Milliseconds openPatience{30'000};
constexpr Milliseconds quitPatience{10'000};
// How long one may be on its way in or out, during which nobody listens.
constexpr Milliseconds pause{20};
constexpr int attempts = 250;

// Takes the seat, or has who is on it open its popover.
std::optional<int> join(InstanceSeat& seat, const Environment& environment, Log& log) {
  const auto token = environment.find("XDG_ACTIVATION_TOKEN");
  const std::string request =
      std::string(instanceRequest::open) + " " + (token == environment.end() ? "" : token->second);
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (const auto taken = seat.take(); taken != InstanceSeat::Taken::elsewhere) {
      if (taken == InstanceSeat::Taken::unavailable) {
        log.note("no place where a second start would find this one");
      }
      return std::nullopt;
    }
    const auto answer = ask(seat.connect(), request, openPatience);
    if (answer) {
      if (*answer != openedAnswer) {
        log.note("runs already, where there is no display");
      }
      return EXIT_SUCCESS;
    }
    if (answer.error() == Ending::silence) {
      log.error("runs already and does not answer");
      return EXIT_FAILURE;
    }
    (void)::poll(nullptr, 0, pause.count());
  }
  log.note("starts although another one, which cannot be reached, may run");
  return std::nullopt;
}

// It has ended when nobody has the seat: one that has many callers, or is stuck, hears no more.
int quit(InstanceSeat& seat, Log& log) {
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (seat.take() != InstanceSeat::Taken::elsewhere) {
      if (attempt == 0) {
        log.note("does not run");
      }
      return EXIT_SUCCESS;
    }
    const auto answer = ask(seat.connect(), instanceRequest::quit, quitPatience);
    if (!answer && answer.error() == Ending::silence) {
      break;
    }
    (void)::poll(nullptr, 0, pause.count());
  }
  log.error("does not end");
  return EXIT_FAILURE;
}

}  // namespace

std::optional<int> callInstance(const Command& command, InstanceSeat& seat,
                                const Surroundings& surroundings, const Environment& environment) {
  StandardErrorLog log;
  switch (command.mode) {
    case Command::Mode::quit:
      return quit(seat, log);
    case Command::Mode::status:
      return command.follows ? followStatus(command.form, seat, surroundings, environment)
                             : printStatus(command.form, seat, surroundings, environment);
    default:
      return join(seat, environment, log);
  }
}

}  // namespace marigold
