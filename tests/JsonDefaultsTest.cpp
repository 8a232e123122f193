#include <filesystem>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BoundedFile.h"
#include "JsonDefaults.h"
#include "support/OrdinaryUser.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class JsonDefaultsTest : public testing::Test, public Log {
 protected:
  void note(std::string_view) override {}
  void error(std::string_view line) override { errors.emplace_back(line); }
  static std::string content(const std::string& path) {
    return readWholeFile(path, 10'000).value_or("unreadable");
  }

  std::vector<std::string> errors;
  test::TemporaryDirectory directory;
  std::string file = directory.path() + "/preferences.json";
};

TEST_F(JsonDefaultsTest, ValuesOutliveARestartWhereALinkLeads) {
  fs::create_symlink("new/app/kept.json", file);  // yet to be made
  const std::string odd = std::string("quote \" slash \\ umlaut \u00e4 nul ") + '\0' + " end";
  JsonDefaults defaults(file, *this);
  defaults.apply({{"a", true}, {"b", odd}});
  defaults.apply({{"a", odd}, {"b", {}}, {"never set", {}}});
  const JsonDefaults restarted(file, *this);
  for (const JsonDefaults* read : {&std::as_const(defaults), &restarted}) {
    EXPECT_EQ(read->text("a"), odd) << "a value may change its type";
    EXPECT_EQ(read->value("b"), DefaultsValue());
  }
  EXPECT_TRUE(fs::is_symlink(file));
}

TEST_F(JsonDefaultsTest, MembersOfOtherTypesAreKept) {
  directory.write("preferences.json", R"({"z" : [{"a": 1e400}], "n": 9007199254740993, "o": {}})");
  JsonDefaults(file, *this).apply({{"m", false}, {"o", std::string("x")}});
  EXPECT_EQ(content(file),
            "{\"m\":false,\"n\":9007199254740993,\"o\":\"x\",\"z\":[{\"a\":1e400}]}\n");
}

TEST_F(JsonDefaultsTest, WhatIsNoPreferencesFileIsMovedAsideAndReported) {
  const std::string notes = directory.write("notes.txt", "not preferences");
  for (const auto& [end, spoil] : std::vector<std::pair<std::string, std::function<void()>>>{
           {"", [&] { directory.write("preferences.json", "[true]"); }},
           {"-2", [&] { directory.write("preferences.json/inside", "kept"); }},
           {"-3", [&] { fs::create_symlink("preferences.json", file); }},
           {"-4", [&] { fs::create_symlink(notes, file); }}}) {
    spoil();
    errors.clear();
    JsonDefaults(file, *this).set("a", true);
    EXPECT_THAT(errors, ElementsAre(HasSubstr(file + ".corrupt" + end)));
    EXPECT_EQ(content(file), "{\"a\":true}\n");
    fs::remove(file);
  }
  EXPECT_EQ(content(file + ".corrupt"), "[true]");
  EXPECT_EQ(content(notes), "not preferences");
}

TEST_F(JsonDefaultsTest, WhatCannotBeReadIsLeftAloneAndAFailedSaveIsMadeUpFor) {
  JsonDefaults defaults(file, *this);
  defaults.set("a", true);
  test::asOrdinaryUser([&] {
    fs::permissions(directory.path(), fs::perms::owner_read | fs::perms::owner_exec);
    defaults.set("a", false);
    defaults.set("b", true);
    fs::permissions(directory.path(), fs::perms::owner_all);
    fs::permissions(file, fs::perms::none);
    JsonDefaults(file, *this).set("c", true);
    fs::permissions(file, fs::perms::owner_all);
  });
  EXPECT_THAT(errors, ElementsAre(HasSubstr("cannot save"), HasSubstr("cannot be read")));
  EXPECT_EQ(content(file), "{\"a\":true}\n");
  defaults.set("b", true);  // unchanged, but still to be saved
  EXPECT_EQ(content(file), "{\"a\":false,\"b\":true}\n");
}

}  // namespace
}  // namespace marigold
