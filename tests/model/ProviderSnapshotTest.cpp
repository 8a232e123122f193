#include <gtest/gtest.h>

#include "model/DiskCache.h"
#include "model/LegacyNetworkCache.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;

class DiskCacheTest : public testing::Test {
 protected:
  test::TemporaryDirectory directory;
  std::string root = directory.path();
  DiskCache cache{{.home = root, .environment = {{"MARIGOLD_CACHE_DIR", "~/new/cache/"}}}};
  CachedSnapshot reading{
      .provider = ProviderID::codex,
      .windows = {{"5h", 42.4, Date{Seconds{978'307'140}}}, {"\u00dcber \"x\"", 0.1, {}}},
      .capturedAt = Date{Seconds{978'307'201.5}},
      .planLabel = "Plus"};
};

TEST_F(DiskCacheTest, ThePlaceAndTheFormAreTheDocumentedOnes) {
  EXPECT_EQ(DiskCache({.applicationSupport = "/support", .bundleIdentifier = "app"}).dir(),
            "/support/app/cache");
  EXPECT_EQ(
      DiskCache({.temporary = "/temporary", .environment = {{"MARIGOLD_CACHE_DIR", ""}}}).dir(),
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
        "percent>p", "42.4>\"42.4\"", "42.4>1e400", "42.4>101.1", "\"Plus\">1",
        "-60.0>\"2026-06-12\""}) {
    const std::string part = change.substr(0, change.find('>'));
    std::string bad = good;
    bad.replace(good.find(part), part.size(), change.substr(part.size() + 1));
    directory.write("new/cache/codex.json", bad);
    EXPECT_EQ(cache.load(ProviderID::codex), std::nullopt) << bad;
  }
  cache.save(reading);
  EXPECT_EQ(cache.load(ProviderID::codex), reading);
  directory.write("new/cache/codex.json.marigold-Ab12Cd", "left by an interrupted save");
  std::set<fs::path> kept;
  for (const char* name : {"backup", "marigold-Ab12Cd.old", "marigold-notes"}) {
    kept.insert(directory.write(std::string("new/cache/codex.json.") + name, ""));
  }
  cache.remove(ProviderID::codex);
  reading.extraNote = "\xff";  // has no form in JSON
  cache.save(reading);
  EXPECT_EQ(std::set<fs::path>(fs::directory_iterator(cache.dir()), {}), kept);
}

TEST_F(DiskCacheTest, APlaceThatTakesNoFilesCostsOnlyTheRestoring) {
  cache.save(reading);
  const CachedSnapshot before = reading;
  reading.planLabel = "Pro";
  fs::permissions(cache.dir(), fs::perms::owner_read | fs::perms::owner_exec);
  test::asOrdinaryUser([&] { cache.save(reading); });
  fs::permissions(cache.dir(), fs::perms::owner_all);
  EXPECT_EQ(cache.load(ProviderID::codex), before);
  const DiskCache inAFile(
      {.home = root, .environment = {{"MARIGOLD_CACHE_DIR", directory.write("file", "x")}}});
  inAFile.save(reading);
  inAFile.remove(ProviderID::codex);
  EXPECT_EQ(inAFile.load(ProviderID::codex), std::nullopt);
  EXPECT_TRUE(fs::is_regular_file(root + "/file"));
}

TEST(ProviderSnapshot, QueriesItsWindows) {
  const ProviderSnapshot snapshot{.windows = {{"5h", 42.4, Date{Seconds{60}}},
                                              {"Weekly", 62.5, Date{Seconds{30}}},
                                              {"Opus", 62.5, {}},
                                              {"Weekly", 50, Date{Seconds{90}}}}};
  EXPECT_EQ(snapshot.headlineWindow(), &snapshot.windows[1]) << "the first of equals";
  EXPECT_EQ(snapshot.percent("Weekly"), 62.5) << "the first of that label";
  EXPECT_EQ(snapshot.soonestReset(), Date{Seconds{30}});
  EXPECT_EQ(snapshot.accessibilityDescription("Weekly"), "Claude Weekly 63%") << "half away from 0";
  EXPECT_EQ(snapshot.accessibilityDescription("30d"), "Claude 63%");

  const ProviderSnapshot empty{.provider = ProviderID::grok};
  EXPECT_EQ(empty.headlinePercent(), std::nullopt);
  EXPECT_EQ(empty.accessibilityDescription("5h"), "Grok: no data");
}

TEST(ProviderSnapshot, IsRestoredAsStaleAndColouredUpToADay) {
  const ProviderSnapshot snapshot{
      .windows = {{"5h", 1, {}}}, .planLabel = "Plus", .extraNote = "note"};
  const Date captured = snapshot.capturedAt;
  EXPECT_EQ(snapshot.cached().restored(captured + Seconds{7200}),
            snapshot.withHealth(Health::stale("2h ago")));
  EXPECT_TRUE(snapshot.isColorTrustworthy(captured + Seconds{86400}));
  EXPECT_FALSE(snapshot.isColorTrustworthy(captured + Seconds{86401}));
  using Limits = std::numeric_limits<double>;
  EXPECT_EQ(readingAge(Limits::quiet_NaN()), (ReadingAge{0, "just now", true}));
  EXPECT_TRUE(relativeAge(Limits::infinity()).ends_with("d ago"));
}

TEST(LegacyNetworkCache, TakesTheApplicationsOwnEntryAndNothingOfTheUsers) {
  struct Row {
    bool isPurged;
    std::string caches, configuration, link, target;
  };
  const std::string preferences = "config/app/preferences.json";
  for (const auto& [isPurged, caches, configuration, link, target] :
       {Row{true, "caches", "config"},
        {true, "config/app", "config"},
        {true, "caches", "config", "elsewhere", "caches/app"},
        {true, "caches", "config", "config", "dotfiles"},
        {false, "config", "config"},
        {false, "caches", "closed/config"},
        {false, "caches", "caches/app/config"},
        {false, "caches", "config", "caches", "config"},
        {false, "caches", "config", "config", "caches"},
        {false, "caches", "config", "config/app", "caches/app"},
        {false, "caches", "config", "config", "caches/app/deeper/.."},
        {false, "caches", "config", preferences, "caches/app/kept.json"},
        {false, "caches", "config", "caches/app", "elsewhere"},
        {false, "caches", "config", ".codex", "caches/app/codex"}}) {
    const test::TemporaryDirectory home;
    const auto at = [&](const std::string& name) { return home.path() + "/" + name; };
    if (!link.empty()) {
      fs::create_directories(fs::path(at(link)).parent_path());
      fs::create_directories(at(link == preferences ? "caches/app" : target));
      fs::create_symlink(at(target), at(link));
    }
    const std::string cached = home.write(caches + "/app/Cache.db", "");
    const std::string kept = home.write(configuration + "/app/preferences.json", "");
    if (configuration == "closed/config") {
      fs::permissions(at("closed"), fs::perms::none);
    }
    test::asOrdinaryUser([&] {
      purgeLegacyNetworkCache({.home = home.path(),
                               .applicationSupport = at("data"),
                               .caches = at(caches),
                               .configuration = at(configuration),
                               .bundleIdentifier = "app"});
    });
    fs::permissions(fs::path(at(configuration)).parent_path(), fs::perms::owner_all);
    EXPECT_TRUE(fs::exists(kept)) << caches << ' ' << link << ' ' << target;
    EXPECT_EQ(fs::exists(cached), !isPurged) << caches << ' ' << link << ' ' << target;
  }
}

}  // namespace
}  // namespace marigold
