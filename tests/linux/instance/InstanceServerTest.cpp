#include <array>
#include <deque>
#include <filesystem>
#include <string>

#include <QtCore/QByteArray>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "linux/instance/InstanceSeat.h"
#include "linux/instance/InstanceServer.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

// What the other end of the door is asked, and hears.
class InstanceServerTest : public testing::Test {
 protected:
  InstanceServerTest() {
    server.onRequest = [this](std::string_view request) {
      requests += std::string(request) + "|";
      return request == "quit" ? "" : std::string(request) + "!\n";
    };
    server.onFollow = [this](std::string_view form) {
      return form == "known" ? InstanceDoor::News([this] { return news; }) : nullptr;
    };
  }

  const OwnedDescriptor& come() { return callers.emplace_back(seat.connect()); }
  void say(const OwnedDescriptor& caller, const std::string& text) {
    EXPECT_EQ(::send(caller.get(), text.data(), text.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(text.size()));
    turn();
  }
  void turn() {
    for (int i = 0; i < 8; ++i) {
      loop.dispatch();
    }
  }
  // What it has heard since; "." at the end when that is all it will hear.
  static std::string heard(const OwnedDescriptor& caller) {
    std::string text;
    std::array<char, 1 << 16> bytes{};
    for (;;) {
      const ssize_t count = ::recv(caller.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
      if (count <= 0) {
        return text + (count == 0 ? "." : "");
      }
      text.append(bytes.data(), static_cast<std::size_t>(count));
    }
  }

  test::TemporaryDirectory home;
  InstanceSeat seat{{{"XDG_RUNTIME_DIR", home.path()}}, {.bundleIdentifier = "test"}};
  const InstanceSeat::Taken taken = seat.take();
  LinuxEventLoop loop;
  InstanceServer server{loop, seat.listener()};
  std::deque<OwnedDescriptor> callers;
  std::string requests;
  std::string news = "first\n";
};

TEST_F(InstanceServerTest, AnswersOneLineFromEachCaller) {
  struct Row {
    std::string said;
    std::string heard;
    std::string asked;
  };
  for (const Row& row :
       {Row{"status x\n", "status x!\n.", "status x|"}, Row{"stat", "", ""},
        Row{"open\nquit\n", "open!\n.", "open|"}, Row{"open token\n", "open!\n.", "open|"},
        Row{"quit\n", "", "quit|"}, Row{"\n", "!\n.", "|"}, Row{std::string(4096, 'x'), "", ""},
        Row{std::string(4097, 'x'), ".", ""}, Row{"follow unknown\n", ".", ""},
        Row{"follow known\n", "first\n", ""}}) {
    requests.clear();
    const OwnedDescriptor& caller = come();
    say(caller, row.said);
    EXPECT_EQ(heard(caller), row.heard);
    EXPECT_EQ(requests, row.asked);
  }
  EXPECT_EQ(qgetenv("XDG_ACTIVATION_TOKEN"), "token");
  if (const OwnedDescriptor& stranger = come(); ::seteuid(65534) == 0) {
    turn();  // as another user
    EXPECT_EQ(::seteuid(0), 0);
    EXPECT_EQ(heard(stranger), ".");
  }
  say(callers[1], "us\n");
  say(callers[1], "open\n");
  EXPECT_EQ(heard(callers[1]), "status!\n.");
  EXPECT_EQ(requests, "status|");
}

TEST_F(InstanceServerTest, TellsFollowersUntilTheyGoOrStopReading) {
  const OwnedDescriptor& reads = come();
  const OwnedDescriptor& sleeps = come();
  for (const OwnedDescriptor* const caller : {&reads, &sleeps}) {
    say(*caller, "follow known\n");
    EXPECT_EQ(heard(*caller), "first\n");
  }
  news.clear();
  server.tellFollowers();
  EXPECT_EQ(heard(reads), "");
  news = std::string(1 << 14, 'x');
  for (int i = 0; i < 64; ++i) {
    server.tellFollowers();
    EXPECT_TRUE(heard(reads) == news);
  }
  EXPECT_TRUE(heard(sleeps).ends_with("x."));
  callers.pop_front();
  turn();
  server.tellFollowers();

  // When there are too many, who only waits makes room; followers leave some of it.
  callers.clear();
  turn();
  for (int i = 0; i < 49; ++i) {
    say(come(), "follow known\n");
  }
  EXPECT_EQ(heard(callers.back()), ".");
  for (int i = 0; i < 64; ++i) {
    come();
    turn();
  }
  say(callers.back(), "open\n");
  EXPECT_EQ(heard(callers.back()), "open!\n.");
  EXPECT_EQ(heard(callers.front()), news);
}

}  // namespace
}  // namespace marigold
