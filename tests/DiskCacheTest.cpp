#include <filesystem>
#include <limits>

#include <gtest/gtest.h>

#include "BoundedFile.h"
#include "DiskCache.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;

class DiskCacheTest : public testing::Test {
 protected:
  [[nodiscard]] DiskCache cacheIn(const std::string& variable) const {
    return DiskCache({.home = "/home/me",
                      .applicationSupport = root + "/support",
                      .bundleIdentifier = "app.test",
                      .environment = {{"MARIGOLD_CACHE_DIR", variable}}});
  }

  test::TemporaryDirectory directory;
  std::string root = directory.path();
  DiskCache cache = cacheIn("");
  std::string file = root + "/support/app.test/cache/codex.json";
  CachedSnapshot reading{
      .provider = ProviderID::codex,
      .windows = {{"5h", 42.4, Date{Seconds{978'307'140}}}, {"\u00dcber \"x\"", 0.1, {}}},
      .capturedAt = Date{Seconds{1'781'271'642.123456}},
      .planLabel = "Plus"};
};

TEST_F(DiskCacheTest, LivesWhereTheEnvironmentOrTheSystemSays) {
  EXPECT_EQ(cache.dir(), root + "/support/app.test/cache");
  EXPECT_EQ(cacheIn("/else/where").dir(), "/else/where");
  EXPECT_EQ(cacheIn("~/x").dir(), "/home/me/x");
  EXPECT_EQ(cacheIn("~x/y").dir(), "~x/y");
  EXPECT_EQ(DiskCache({.temporary = "/temporary"}).dir(),
            "/temporary/" + std::string(builtInBundleIdentifier()) + "/cache");
}

TEST_F(DiskCacheTest, WhatIsSavedIsLoadedUntilItIsRemoved) {
  for (const Date captured : {reading.capturedAt, distantPast, distantFuture}) {
    reading.capturedAt = captured;
    cache.save(reading);
    EXPECT_EQ(cache.load(ProviderID::codex), reading);
  }
  EXPECT_EQ(cache.load(ProviderID::claude), std::nullopt);
  cache.remove(ProviderID::codex);
  cache.remove(ProviderID::codex);
  EXPECT_EQ(cache.load(ProviderID::codex), std::nullopt);
}

TEST_F(DiskCacheTest, TheFormIsTheDocumentedOne) {
  reading.capturedAt = Date{Seconds{978'307'201.5}};
  EXPECT_EQ(encodeCachedSnapshot(reading),
            "{\"provider\":\"codex\",\"windows\":[{\"label\":\"5h\",\"percent\":42.4,"
            "\"resetsAt\":-60.0},{\"label\":\"\u00dcber \\\"x\\\"\",\"percent\":0.1}],"
            "\"capturedAt\":1.5,\"planLabel\":\"Plus\"}");
  const auto other = decodeCachedSnapshot(
      R"({"provider":"grok","windows":[{"label":"5h","percent":7,"resetsAt":null,"new":[{}]}],)"
      R"("capturedAt":1e300,"planLabel":null,"version":2})");
  EXPECT_EQ(other, (CachedSnapshot{.provider = ProviderID::grok,
                                   .windows = {{"5h", 7, {}}},
                                   .capturedAt = distantFuture}));
}

TEST_F(DiskCacheTest, ABadFileLoadsAsNothingAndIsReplacedByTheNextSave) {
  const std::string good = *encodeCachedSnapshot(reading);
  std::vector<std::string> bad{"", "[]", good + "x", good + good, good + '\0', good.substr(1)};
  for (const std::string change :
       {"Plus>\xc3(", "codex>claude", "codex>gemini", "provider>p", "windows>w", "capturedAt>c",
        "label>l", "percent>p", "42.4>\"42.4\"", "42.4>1e400", "42.4>null", "\"Plus\">1",
        "\"5h\">5", "capturedAt\":>capturedAt\":[],\"capturedAt\":", "-60.0>\"2026-06-12\""}) {
    const std::string part = change.substr(0, change.find('>'));
    bad.push_back(good);
    bad.back().replace(good.find(part), part.size(), change.substr(part.size() + 1));
  }
  for (const std::string& content : bad) {
    directory.write("support/app.test/cache/codex.json", content);
    EXPECT_EQ(cache.load(ProviderID::codex), std::nullopt) << content;
    EXPECT_EQ(readWholeFile(file, 10'000), content) << "left in place";
  }
  fs::resize_file(file, std::uintmax_t{1} << 32);
  EXPECT_EQ(cache.load(ProviderID::codex), std::nullopt);
  cache.save(reading);
  EXPECT_EQ(cache.load(ProviderID::codex), reading);
}

TEST_F(DiskCacheTest, FailuresAreSilent) {
  reading.extraNote = "\xff";
  cache.save(reading);
  reading.extraNote = "fine";
  reading.windows[0].percent = std::numeric_limits<double>::quiet_NaN();
  cache.save(reading);
  EXPECT_FALSE(fs::exists(file)) << "neither has a form in JSON";

  const DiskCache nowhere = cacheIn(directory.write("taken", "a file"));
  nowhere.save(reading);
  EXPECT_EQ(nowhere.load(ProviderID::codex), std::nullopt);
  nowhere.remove(ProviderID::codex);
  EXPECT_TRUE(fs::is_regular_file(root + "/taken"));
}

TEST_F(DiskCacheTest, ThePurgeTakesTheApplicationsOwnEntriesOnly) {
  directory.write("caches/app.test/Cache.db", "");
  directory.write("caches/app.test.other/kept", "");
  directory.write("target/kept", "");
  fs::create_directory(root + "/storages");
  fs::create_directory_symlink(root + "/target", root + "/storages/app.test");
  purgeLegacyNetworkCache(root + "/caches", root + "/storages", "");
  EXPECT_TRUE(fs::exists(root + "/caches/app.test"));
  purgeLegacyNetworkCache(root + "/caches", root + "/storages", "app.test");
  EXPECT_FALSE(fs::exists(root + "/caches/app.test"));
  EXPECT_FALSE(fs::exists(root + "/storages/app.test"));
  EXPECT_TRUE(fs::exists(root + "/caches/app.test.other/kept"));
  EXPECT_TRUE(fs::exists(root + "/target/kept")) << "a link goes, not what it leads to";
}

}  // namespace
}  // namespace marigold
