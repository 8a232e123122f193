#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "base/AtomicFile.h"
#include "base/BoundedFile.h"
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

  test::TemporaryDirectory directory;
  std::string file = directory.write("file", "content");
};

TEST_F(FilesTest, OnlyReadableRegularFilesAreRead) {
  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
  fs::create_symlink(file, at("link"));
  const auto descriptors = entriesOf("/proc/self/fd");
  using enum FileFailure;
  for (const auto& [path, failure] : {std::pair(at("fifo"), notRegular),
                                      {at("link"), notRegular},
                                      {directory.path(), notRegular},
                                      {at("missing"), missing},
                                      {at("file/below"), missing}}) {
    EXPECT_EQ(readWholeFile(path, 100), std::unexpected(failure)) << path;
  }
  EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
}

TEST_F(FilesTest, SizesAreCheckedBeforeReading) {
  EXPECT_EQ(readWholeFile(file, 7), "content");
  EXPECT_EQ(readWholeFile(file, 6), std::unexpected(FileFailure::tooLarge));
  constexpr std::int64_t fourGiB = std::int64_t{1} << 32;
  fs::resize_file(file, fourGiB + 2);  // sparse
  EXPECT_EQ(readWholeFile(file, 1 << 20), std::unexpected(FileFailure::tooLarge));
  std::string part(5, 'x');
  EXPECT_EQ(BoundedFile::open(file)->readAt(fourGiB, part), 2U) << "fewer bytes at the end only";
}

TEST_F(FilesTest, AReplacementIsWholeOrLeavesTheOldFileAndNothingElse) {
  const auto old = BoundedFile::open(file);
  EXPECT_TRUE(replaceFile(file, "new"));
  std::string part(7, 'x');
  EXPECT_TRUE(old->readAt(0, part) == 7U && part == "content") << "whoever is reading goes on";
  EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);

  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit full{.rlim_cur = 1000, .rlim_max = limit.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ::setrlimit(RLIMIT_FSIZE, &full);
  const auto failed = replaceFile(file, std::string(5000, 'x'));  // 1,000 bytes get through
  ::setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(std::signal(SIGXFSZ, handler), SIG_IGN);
  EXPECT_EQ(failed, std::unexpected(std::make_error_code(std::errc::file_too_large)));
  EXPECT_EQ(readWholeFile(file, 100), "new");
  EXPECT_EQ(entriesOf(directory.path()), 1);
}

TEST_F(FilesTest, DirectoriesAreCreatedWithTheirParents) {
  EXPECT_TRUE(createDirectories(at("a/b/c")) && createDirectories(at("a/b/c")));
  EXPECT_EQ(fs::status(at("a")).permissions(), fs::perms::owner_all);
  fs::permissions(at("a/b/c"), fs::perms::owner_read | fs::perms::owner_exec);
  test::asOrdinaryUser(
      [&] { EXPECT_EQ(createDirectories(at("a/b/c/d")).error(), std::errc::permission_denied); });
  EXPECT_EQ(createDirectories(file).error(), std::errc::not_a_directory);
  EXPECT_EQ(createDirectories(file + "/below").error(), std::errc::not_a_directory);
}

}  // namespace
}  // namespace marigold
