#include <future>

#include <gtest/gtest.h>

#include "MarigoldApp.h"
#include "support/Desk.h"
#include "support/PopoverText.h"
#include "support/SimplePorts.h"
#include "support/StoreFixture.h"

namespace marigold {
namespace {

constexpr const char* threads = "/proc/self/task";

struct MarigoldAppTest : testing::Test, protected test::StoreFixture {};

TEST_F(MarigoldAppTest, EndsItsPartsInOrder) {
  test::Desk desk;
  std::promise<void> reading;
  std::promise<void> stopped;
  struct Transport final : HTTPTransport {
    std::function<void()> onStop;
    std::optional<HTTPAnswer> send(HTTPRequest /*request*/) override { return {}; }
    void stop() override { onStop(); }
  } transport;
  transport.onStop = [&] {
    desk.journal.emplace_back(attention.tell(AttentionEvent::wake) == 0 ? "request"
                                                                        : "request first");
    stopped.set_value();
  };
  UpdaterController updater;
  const test::FixedLocalTimeText localTime;
  const test::FixedTextMeasurer measurer;
  std::thread([] {}).join();  // a sanitizer has one of its own from the first on
  const std::ptrdiff_t before = test::entriesOf(threads);
  MarigoldApp app({.surroundings = {.home = directory.path(),
                                    .bundleIdentifier = "app",
                                    .environment = {{"GROK_HOME", directory.path() + "-grok"}}},
                   .loop = loop,
                   .log = log,
                   .defaults = defaults,
                   .eventStreams = streams,
                   .attention = attention,
                   .random = random,
                   .transport = transport,
                   .readClaudeLogin = [&]() -> std::expected<ClaudeCredentials, KeychainReadError> {
                     reading.set_value();
                     stopped.get_future().wait();  // as one that waits for a request does
                     desk.journal.emplace_back("login");
                     return std::unexpected(KeychainReadError{});
                   },
                   .statusBar = desk,
                   .popover = desk,
                   .appearance = desk,
                   .application = desk,
                   .loginItem = loginItem,
                   .updater = updater,
                   .localTime = localTime,
                   .textMeasurer = measurer});
  app.launch();
  reading.get_future().wait();
  EXPECT_EQ(test::entriesOf(threads), before + 3) << "a worker for each provider";
  desk.item->onClick({});
  const auto& cards = desk.content.cards;
  const auto told = [&] {
    loop.advance(Seconds{1});  // Claude's login is waited for until patience ends
    return test::told(cards.at(1)) + "\n" + test::told(cards.at(2));
  };
  const std::string looked =
      "Codex\nCodex not detected\n- Looks in ~/.codex/sessions\n"
      "Grok\nGrok not detected\n- Looks in " +
      directory.path() + "-grok/logs";
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (told() != looked && std::chrono::steady_clock::now() < limit) {
    std::this_thread::yield();
  }
  EXPECT_EQ(told(), looked);
  desk.journal.clear();
  app.terminate();
  EXPECT_EQ(desk.journal, (test::Desk::Journal{"leave in 0.500000", "request", "login"}));
  EXPECT_EQ(test::entriesOf(threads), before);
  EXPECT_FALSE(desk.onClosed);
  loop.post([&] { desk.journal.clear(); });
  loop.settle();
  EXPECT_FALSE(desk.journal.empty()) << "the loop is closed";
}

}  // namespace
}  // namespace marigold
