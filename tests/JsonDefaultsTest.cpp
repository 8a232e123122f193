#include <algorithm>
#include <filesystem>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "BoundedFile.h"
#include "JsonDefaults.h"
#include "support/DefaultsContract.h"
#include "support/OrdinaryUser.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ErrorList final : public Log {
 public:
  void note(std::string_view) override {}
  void error(std::string_view line) override { lines.emplace_back(line); }

  std::vector<std::string> lines;
};

class JsonDefaultsTest : public testing::Test {
 protected:
  static std::string content(const std::string& path) {
    return readWholeFile(path, 1 << 22).value_or("unreadable");
  }
  std::vector<std::string> names() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory.path())) {
      names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
  }

  test::TemporaryDirectory directory;
  std::string file = directory.path() + "/preferences.json";
  ErrorList log;
};

TEST_F(JsonDefaultsTest, KeepsTheContractAndEverythingOverARestart) {
  const std::string path = directory.path() + "/new/app/preferences.json";
  JsonDefaults defaults(path, log);
  test::expectDefaultsContract(defaults);
  const JsonDefaults restarted(path, log);
  for (const char* key : {"a", "b", "c", ""}) {
    EXPECT_EQ(restarted.value(key), defaults.value(key)) << key;
  }
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(JsonDefaultsTest, WritesSortedKeysAndKeepsMembersOfOtherTypes) {
  const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
  directory.write("preferences.json",
                  "\xEF\xBB\xBF {\"z\" : [1, {\"a\": 1e400, \"\": []}, \"\\u00e4\\n\", null],\n"
                  "\"twice\": \"first\", \"n\": 12345678901234567890, \"twice\": \"second\","
                  "\"o\": {}, \"t\": true, \"deep\":" +
                      deep + "}");
  JsonDefaults defaults(file, log);
  EXPECT_EQ(defaults.value("n"), DefaultsValue());
  EXPECT_EQ(defaults.text("twice"), "first");
  defaults.apply({{"m", false}, {"o", std::string("x")}});
  EXPECT_EQ(content(file), "{\"deep\":" + deep +
                               ",\"m\":false,\"n\":12345678901234567890,\"o\":\"x\",\"t\":true,"
                               "\"twice\":\"first\",\"z\":[1,{\"a\":1e400,\"\":[]},\"\u00e4\\n\","
                               "null]}\n");
}

TEST_F(JsonDefaultsTest, DoesNotWriteWhatIsStoredAlready) {
  JsonDefaults defaults(file, log);
  defaults.set("a", true);
  fs::remove(file);
  defaults.apply({{"a", true}, {"b", {}}});
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(JsonDefaultsTest, WhatIsNoPreferencesFileIsMovedAsideAndReportedOnce) {
  const std::vector<std::function<void()>> spoilers{
      [&] { directory.write("preferences.json", ""); },
      [&] { directory.write("preferences.json", "[true]"); },
      [&] { directory.write("preferences.json", "{\"a\":true"); },
      [&] { directory.write("preferences.json", "{\"a\":\"\xff\"}"); },
      [&] { directory.write("preferences.json", "{" + std::string(2 << 20, ' ') + "}"); },
      [&] { directory.write("preferences.json/inside", "kept"); },
      [&] { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); },
      [&] { fs::create_symlink("preferences.json", file); },
  };
  for (std::size_t i = 0; i < spoilers.size(); ++i) {
    SCOPED_TRACE(i);
    spoilers[i]();
    log.lines.clear();
    JsonDefaults defaults(file, log);
    const std::string aside =
        "preferences.json.corrupt" + (i == 0 ? "" : "-" + std::to_string(i + 1));
    EXPECT_THAT(names(), testing::Contains(aside));
    EXPECT_THAT(log.lines, ElementsAre(HasSubstr(aside)));
    defaults.set("a", true);
    EXPECT_EQ(content(file), "{\"a\":true}\n");
    fs::remove(file);
    EXPECT_EQ(names().size(), i + 1) << "everything kept, nothing else left behind";
  }
  EXPECT_EQ(content(directory.path() + "/preferences.json.corrupt-2"), "[true]");
}

TEST_F(JsonDefaultsTest, WritesWhereALinkLeads) {
  const std::string kept = directory.write("dotfiles/kept.json", "{\"a\":true}");
  fs::create_symlink("dotfiles/kept.json", directory.path() + "/hop");
  fs::create_symlink(directory.path() + "/hop", file);
  JsonDefaults defaults(file, log);
  EXPECT_EQ(defaults.flag("a"), true);
  defaults.set("a", false);
  EXPECT_EQ(content(kept), "{\"a\":false}\n");
  EXPECT_TRUE(fs::is_symlink(file));

  fs::remove(kept);  // a link to where a file is to be
  JsonDefaults(file, log).set("b", true);
  EXPECT_EQ(content(kept), "{\"b\":true}\n");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(JsonDefaultsTest, OfALinkToSomethingElseOnlyTheLinkMoves) {
  const std::string notes = directory.write("other/notes.txt", "not preferences");
  for (const fs::path& target : {fs::path(notes), fs::path(notes).parent_path()}) {
    fs::create_symlink(target, file);
    JsonDefaults(file, log).set("a", true);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(file)));
    fs::remove(file);
  }
  EXPECT_EQ(content(notes), "not preferences");
  EXPECT_EQ(log.lines.size(), 2U);
}

TEST_F(JsonDefaultsTest, AnUnreadableFileIsLeftAlone) {
  directory.write("preferences.json", "{\"a\":true}");
  fs::permissions(file, fs::perms::none);
  test::asOrdinaryUser([&] {
    JsonDefaults defaults(file, log);
    defaults.set("b", true);
    EXPECT_EQ(defaults.flag("b"), true);
  });
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("cannot be read")));
  EXPECT_EQ(content(file), "{\"a\":true}");
}

TEST_F(JsonDefaultsTest, AFailedSaveIsReportedOnceAndMadeUpFor) {
  JsonDefaults defaults(file, log);
  test::asOrdinaryUser([&] {
    fs::permissions(directory.path(), fs::perms::owner_read | fs::perms::owner_exec);
    defaults.set("a", true);
    defaults.set("b", true);
    fs::permissions(directory.path(), fs::perms::owner_all);
  });
  EXPECT_EQ(defaults.flag("a"), true);
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("cannot save")));
  defaults.set("b", true);  // unchanged, but still to be saved
  EXPECT_EQ(content(file), "{\"a\":true,\"b\":true}\n");

  defaults.set("c", std::string("\xff"));  // has no form in JSON
  EXPECT_EQ(log.lines.size(), 2U);
  EXPECT_EQ(content(file), "{\"a\":true,\"b\":true}\n");
}

}  // namespace
}  // namespace marigold
