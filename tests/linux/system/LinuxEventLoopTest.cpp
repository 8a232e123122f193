#include <gtest/gtest.h>

#include "linux/system/LinuxEventLoop.h"
#include "support/EventLoopContract.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

struct Linux {
  LinuxEventLoop loop;
  void turn() { loop.dispatch(); }
  void pass(Seconds length) {
    const Timer end = loop.callAfter(length, [this] { loop.quit(); });
    loop.run();
  }
};
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, EventLoopContract, Linux);

TEST(LinuxEventLoop, LeavesWhatATurnPostsToTheNext) {
  Linux subject;
  int ran = 0;
  std::function<void()> again = [&] { ++ran, subject.loop.post(again); };
  again();
  subject.turn();
  EXPECT_EQ(ran, 2);
}

TEST(LinuxEventLoop, CountsThroughSleep) {
  const Linux subject;
  std::string clocks;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
    std::ifstream info(entry.path());
    clocks.append(std::istreambuf_iterator<char>(info), {});
  }
  EXPECT_TRUE(clocks.contains("clockid: 7\n")) << "CLOCK_BOOTTIME";
}

TEST(LinuxEventLoop, TellsOfReadableDescriptorsAndWakesWhoWaitsForIt) {
  const auto before = test::openDescriptors();
  {
    Linux subject;
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    int told = 0;
    subject.loop.watch(pipe[0], [&] {
      if (++told == 2) {
        subject.loop.unwatch(pipe[0]);
      }
    });
    std::thread other([&] { subject.loop.post([&] { EXPECT_EQ(::write(pipe[1], "p", 1), 1); }); });
    subject.pass(Seconds{0.05});
    other.join();
    EXPECT_EQ(told, 2) << "as long as there is something to read, and it is watched";
    ::close(pipe[0]);
    ::close(pipe[1]);
  }
  EXPECT_EQ(test::openDescriptors(), before);
}

}  // namespace
}  // namespace marigold
