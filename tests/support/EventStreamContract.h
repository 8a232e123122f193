#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ports/EventStream.h"
#include "support/TemporaryDirectory.h"

namespace marigold::test {

/// What every source of file events keeps to, on a tree of its own.
inline void tellsWhatHappensUntilItsEnd(EventStreamSource& source) {
  const TemporaryDirectory place;
  place.write("root/old", "");
  const std::string root = place.path() + "/root";
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<FileEvent> seen;
  bool busy = false;
  bool released = false;
  auto stream = source.open(root, Seconds{0.01}, [&](const std::vector<FileEvent>& events) {
    std::unique_lock lock(mutex);
    seen.insert(seen.end(), events.begin(), events.end());
    busy = true;
    changed.notify_all();
    changed.wait(lock, [&] { return released; });
    busy = false;
  });
  ASSERT_TRUE(stream);
  const auto expect = [&](const std::string& path, std::uint32_t flags) {
    std::unique_lock lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(20), [&] {
      return std::ranges::any_of(seen, [&](const FileEvent& event) {
        const bool isWhole = (event.flags & eventFlag::mustScanSubDirs) != 0;
        return (event.path == path && (event.flags & flags) == flags) ||
               (isWhole && path.starts_with(event.path));
      });
    })) << path;
    seen.clear();
    released = true;
    changed.notify_all();
  };
  using namespace eventFlag;
  expect(place.write("root/old", "x"), itemIsFile);
  expect(place.write("root/new", "x"), itemIsFile | itemCreated);
  std::filesystem::create_directory(root + "/in");
  expect(root + "/in", itemIsDir | itemCreated);
  std::filesystem::remove(root + "/new");
  expect(root + "/new", itemIsFile | itemRemoved);
  {
    const std::lock_guard lock(mutex);
    released = false;
  }
  place.write("root/old", "xx");
  {
    std::unique_lock lock(mutex);
    ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(20), [&] { return busy; }));
  }
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const std::lock_guard lock(mutex);
    released = true;
    changed.notify_all();
  });
  stream.reset();
  EXPECT_FALSE(busy) << "a delivery goes on after the end";
  later.join();
  seen.clear();
  place.write("root/last", "x");
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_TRUE(seen.empty());
}

}  // namespace marigold::test
