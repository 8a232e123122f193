#include <array>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "LinuxEventLoop.h"

namespace marigold {
namespace {

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(LinuxEventLoop, RunsTimersPostsAndDescriptorsOfRealTime) {
  const auto before = openDescriptors();
  {
    LinuxEventLoop loop;
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    std::string ran;
    const Instant start = loop.now();
    const Timer late = loop.callAfter(Seconds{0.03}, [&] {
      ran += 'l';
      loop.quit();
    });
    const Timer early = loop.callAfter(Seconds{0.01}, [&] { ran += 'e'; });
    Timer cancelled = loop.callAfter(Seconds{0.02}, [&] { ran += '!'; });
    cancelled.cancel();
    loop.watch(pipe[0], [&] {
      char byte = 0;
      EXPECT_EQ(::read(pipe[0], &byte, 1), 1);
      ran += byte;
      loop.unwatch(pipe[0]);
    });
    std::thread other([&] { loop.post([&] { EXPECT_EQ(::write(pipe[1], "p", 1), 1); }); });
    loop.run();
    other.join();
    EXPECT_EQ(ran.substr(ran.size() - 1), "l");
    EXPECT_NE(ran.find('e'), std::string::npos);
    EXPECT_NE(ran.find('p'), std::string::npos);
    EXPECT_EQ(ran.size(), 3U);
    EXPECT_GE(loop.now() - start, std::chrono::milliseconds(30));
    ::close(pipe[0]);
    ::close(pipe[1]);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(LinuxEventLoop, NoPostFromAnyThreadIsMissed) {
  LinuxEventLoop loop;
  constexpr int perThread = 2000;
  int ran = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < perThread; ++j) {
        loop.post([&] {
          if (++ran == 3 * perThread) {
            loop.quit();
          }
        });
      }
    });
  }
  const Timer giveUp = loop.callAfter(Seconds{20}, [&] { loop.quit(); });
  loop.run();
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(ran, 3 * perThread);
}

}  // namespace
}  // namespace marigold
