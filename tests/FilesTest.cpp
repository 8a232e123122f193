#include <atomic>
#include <csignal>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "AtomicFile.h"
#include "BoundedFile.h"
#include "support/OrdinaryUser.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;

class FilesTest : public testing::Test {
 protected:
  std::string at(const std::string& name) { return directory.path() + "/" + name; }
  static std::ptrdiff_t entriesOf(const std::string& path) {
    return std::distance(fs::directory_iterator(path), fs::directory_iterator());
  }
  static std::ptrdiff_t openDescriptors() { return entriesOf("/proc/self/fd"); }

  test::TemporaryDirectory directory;
  std::string file = directory.write("file", "content");
};

TEST_F(FilesTest, OnlyReadableRegularFilesAreRead) {
  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
  fs::create_symlink(file, at("link"));
  fs::permissions(directory.write("closed", ""), fs::perms::none);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  at("socket").copy(std::data(address.sun_path), std::size(address.sun_path) - 1);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(socket, 0);
  const void* bound = &address;
  ASSERT_EQ(::bind(socket, static_cast<const sockaddr*>(bound), sizeof address), 0);
  using enum FileFailure;
  const auto before = openDescriptors();
  test::asOrdinaryUser([&] {
    for (const auto& [path, failure] : {std::pair(at("fifo"), notRegular),
                                        {at("link"), notRegular},
                                        {at("socket"), notRegular},
                                        {directory.path(), notRegular},
                                        {"/dev/zero", notRegular},
                                        {at("missing"), missing},
                                        {at("file/below"), missing},
                                        {"", missing},
                                        {at("closed"), unreadable},
                                        {at(std::string(300, 'x')), unreadable}}) {
      EXPECT_EQ(readWholeFile(path, 100), std::unexpected(failure)) << path;
    }
  });
  EXPECT_EQ(openDescriptors(), before);
  ::close(socket);
}

TEST_F(FilesTest, SizesAreCheckedBeforeReading) {
  EXPECT_EQ(readWholeFile(file, 7), "content");
  EXPECT_EQ(readWholeFile(file, 6), std::unexpected(FileFailure::tooLarge));
  constexpr std::int64_t fourGiB = std::int64_t{1} << 32;
  fs::resize_file(file, fourGiB + 2);  // sparse
  EXPECT_EQ(readWholeFile(file, 1 << 20), std::unexpected(FileFailure::tooLarge));
  const auto opened = BoundedFile::open(file);
  ASSERT_TRUE(opened && opened->size() == fourGiB + 2);
  std::string part(5, 'x');
  EXPECT_EQ(opened->readAt(fourGiB, part), 2U) << "fewer bytes at the end only";
  EXPECT_EQ(part, std::string("\0\0xxx", 5));
  EXPECT_EQ(opened->readAt(3, part), 5U);
  EXPECT_EQ(part, std::string("tent\0", 5));
}

TEST_F(FilesTest, AFailedReplacementLeavesTheOldFileAndNothingElse) {
  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit full{.rlim_cur = 1000, .rlim_max = limit.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_NE(handler, SIG_ERR);
  const auto descriptors = openDescriptors();
  ::setrlimit(RLIMIT_FSIZE, &full);
  const auto failed = replaceFile(file, std::string(5000, 'x'));  // 1,000 bytes get through
  ::setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(std::signal(SIGXFSZ, handler), SIG_IGN);
  EXPECT_EQ(failed, std::unexpected(std::make_error_code(std::errc::file_too_large)));

  test::asOrdinaryUser([&] {
    fs::permissions(directory.path(), fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_FALSE(replaceFile(file, "new").has_value());
    fs::permissions(directory.path(), fs::perms::owner_all);
  });
  EXPECT_FALSE(replaceFile(at("missing/file"), "new").has_value());
  EXPECT_EQ(readWholeFile(file, 100), "content");
  directory.write("directory/inside", "kept");
  EXPECT_FALSE(replaceFile(at("directory"), "new").has_value());
  EXPECT_EQ(entriesOf(directory.path()), 2);
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(FilesTest, ReadersFindTheOldContentOrTheNew) {
  const std::string small("con\0tent", 8);
  const std::string large(100'000, 'x');
  ASSERT_TRUE(replaceFile(file, small));
  std::atomic<bool> done = false;
  std::atomic<int> reads = 0;
  std::thread reader([&] {
    while (!done) {
      const auto content = readWholeFile(file, 1 << 20);
      EXPECT_TRUE(content == small || content == large);
      ++reads;
    }
  });
  for (int i = 0; i < 50 || reads < 50; ++i) {
    EXPECT_TRUE(replaceFile(file, i % 2 == 0 ? large : small));
  }
  done = true;
  reader.join();
  EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(entriesOf(directory.path()), 1);
}

TEST_F(FilesTest, DirectoriesAreCreatedWithTheirParents) {
  EXPECT_TRUE(createDirectories(at("a/b/c")));
  EXPECT_TRUE(createDirectories(at("a/b/c")));
  EXPECT_EQ(fs::status(at("a")).permissions(), fs::perms::owner_all);
  fs::create_directory_symlink("a", at("link"));
  EXPECT_TRUE(createDirectories(at("link/d")));
  EXPECT_EQ(createDirectories(file).error(), std::errc::not_a_directory);
  EXPECT_EQ(createDirectories(file + "/below").error(), std::errc::not_a_directory);
}

}  // namespace
}  // namespace marigold
