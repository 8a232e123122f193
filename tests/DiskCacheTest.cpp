#include <filesystem>

#include <gtest/gtest.h>

#include "DiskCache.h"
#include "support/OrdinaryUser.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

class DiskCacheTest : public testing::Test {
 protected:
  test::TemporaryDirectory directory;
  std::string root = directory.path();
  DiskCache cache{{.home = root, .environment = {{"MARIGOLD_CACHE_DIR", "~/new/cache"}}}};
  CachedSnapshot reading{
      .provider = ProviderID::codex,
      .windows = {{"5h", 42.4, Date{Seconds{978'307'140}}}, {"\u00dcber \"x\"", 0.1, {}}},
      .capturedAt = Date{Seconds{978'307'201.5}},
      .planLabel = "Plus"};
};

TEST_F(DiskCacheTest, ThePlaceAndTheFormAreTheDocumentedOnes) {
  EXPECT_EQ(DiskCache({.applicationSupport = "/support", .bundleIdentifier = "app"}).dir(),
            "/support/app/cache");
  EXPECT_EQ(DiskCache({.temporary = "/temporary"}).dir(),
            "/temporary/" + std::string(builtInBundleIdentifier()) + "/cache");
  EXPECT_EQ(encodeCachedSnapshot(reading),
            "{\"provider\":\"codex\",\"windows\":[{\"label\":\"5h\",\"percent\":42.4,"
            "\"resetsAt\":-60.0},{\"label\":\"\u00dcber \\\"x\\\"\",\"percent\":0.1}],"
            "\"capturedAt\":1.5,\"planLabel\":\"Plus\"}");
  const auto other = decodeCachedSnapshot(
      R"({"provider":"grok","windows":[{"label":"5h","percent":7,"resetsAt":null,"new":[{}]}],)"
      R"("capturedAt":1e300,"planLabel":null,"version":2})");
  EXPECT_EQ(other, (CachedSnapshot{ProviderID::grok, {{"5h", 7, {}}}, distantFuture, {}, {}}));
}

TEST_F(DiskCacheTest, ABadFileLoadsAsNothingAndIsReplacedByTheNextSave) {
  const std::string good = *encodeCachedSnapshot(reading);
  for (const std::string change :
       {"Plus>\xc3(", "codex>claude", "codex>gemini", "windows>w", "capturedAt>c", "label>l",
        "percent>p", "42.4>\"42.4\"", "42.4>1e400", "\"Plus\">1", "-60.0>\"2026-06-12\""}) {
    const std::string part = change.substr(0, change.find('>'));
    std::string bad = good;
    bad.replace(good.find(part), part.size(), change.substr(part.size() + 1));
    directory.write("new/cache/codex.json", bad);
    EXPECT_EQ(cache.load(ProviderID::codex), std::nullopt) << bad;
  }
  cache.save(reading);
  EXPECT_EQ(cache.load(ProviderID::codex), reading);
  cache.remove(ProviderID::codex);
  reading.extraNote = "\xff";  // has no form in JSON
  cache.save(reading);
  EXPECT_FALSE(std::filesystem::exists(root + "/new/cache/codex.json"));
}

TEST_F(DiskCacheTest, APlaceThatTakesNoFilesCostsOnlyTheRestoring) {
  cache.save(reading);
  const CachedSnapshot before = reading;
  reading.planLabel = "Pro";
  std::filesystem::permissions(
      cache.dir(), std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  test::asOrdinaryUser([&] { cache.save(reading); });
  std::filesystem::permissions(cache.dir(), std::filesystem::perms::owner_all);
  EXPECT_EQ(cache.load(ProviderID::codex), before);
  const DiskCache inAFile(
      {.home = root, .environment = {{"MARIGOLD_CACHE_DIR", directory.write("file", "x")}}});
  inAFile.save(reading);
  inAFile.remove(ProviderID::codex);
  EXPECT_EQ(inAFile.load(ProviderID::codex), std::nullopt);
  EXPECT_TRUE(std::filesystem::is_regular_file(root + "/file"));
}

TEST_F(DiskCacheTest, ThePurgeTakesTheApplicationsOwnEntriesOnly) {
  const auto cached = directory.write("caches/app.test/Cache.db", "");
  const auto other = directory.write("caches/app.test.other/kept", "");
  purgeLegacyNetworkCache(root + "/caches", "", "", {});
  EXPECT_TRUE(std::filesystem::exists(cached));
  purgeLegacyNetworkCache(root + "/caches", "", "app.test", {root + "/caches/app.test/cache"});
  EXPECT_TRUE(std::filesystem::exists(cached)) << "it holds what is ours";
  purgeLegacyNetworkCache("", root + "/caches", "app.test", {root + "/caches/app.test.other"});
  EXPECT_FALSE(std::filesystem::exists(cached));
  EXPECT_TRUE(std::filesystem::exists(other));
}

}  // namespace
}  // namespace marigold
