#include <random>

#include <gmock/gmock.h>

#include "support/GrokHome.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using test::at, test::billingLine, test::doneLine, test::exhaustionLine, test::told,
    test::toldInFull;
using Limits = GrokLogScan::Limits;

TEST(GrokRecords, ABadBillingFieldCostsThatFieldOnly) {
  const std::string whole =
      R"({"ts":"2027-01-15T08:00:00.074Z","msg":"billing: fetched credits config","ctx":{"config":)"
      R"({"creditUsagePercent":15.0,"currentPeriod":{"end":"2027-01-15T08:01:40.5+00:00"}},)"
      R"("subscriptionTier":"X Premium"}})";
  // A part of that line, what stands in its place, the reading.
  for (const auto& [part, other, full] :
       std::vector<std::tuple<const char*, const char*, const char*>>{
           {"", "", "Weekly 15 until 1800000100.5, Grok X Premium"},
           {"15.0", "null", "Grok X Premium"},
           {"15.0", "101.5", "Grok X Premium"},
           {"15.0", "\"42.5\"", "Weekly 42.5 until 1800000100.5, Grok X Premium"},
           {R"({"end":"2027-01-15T08:01:40.5+00:00"})", "[]", "Weekly 15, Grok X Premium"},
           {"2027-01-15T08:01:40.5+00:00", "soon", "Weekly 15, Grok X Premium"},
           {"\"X Premium\"", "{}", "Weekly 15 until 1800000100.5"},
           {R"("config":{)", R"("config":15,"x":{)", "Grok X Premium"},
           {R"("ctx":)", R"("ctx":7,"x":)", ""}}) {
    std::string text = whole;
    text.replace(text.find(part), std::string_view(part).size(), other);
    const auto line = GrokBillingLine::decode(text).value();
    EXPECT_TRUE(line.isBilling());
    EXPECT_EQ(line.ts, at(0.074));
    EXPECT_EQ(toldInFull(line.snapshot(at(0), at(0))), full) << text;
  }
  EXPECT_EQ(told(GrokBillingLine::decode(whole)->snapshot(at(0), at(10800))), "Weekly 15 @0, ok");
  EXPECT_EQ(told(GrokBillingLine::decode(whole)->snapshot(at(0), at(10801))),
            "Weekly 15 @0, 3h ago");
  const auto odd = GrokBillingLine::decode(R"({"msg":1,"ts":9})");
  EXPECT_TRUE(odd && !odd->isBilling() && !odd->ts);
  EXPECT_FALSE(GrokBillingLine::decode("[]") || GrokActivityLine::decode("{}}"));
}

TEST(GrokRecords, TellsAQuotaExhaustionAndItsWindow) {
  const std::string spent = "\"error\":\"subscription: usage-exhausted";
  const std::string note = ", Grok X, included usage spent";
  const std::string day = "24h 100 until 1800086400" + note + ", rolling 24h window";
  // What a refused request's line holds, and the reading where it tells an exhaustion.
  for (const auto& [ctx, full] : std::vector<std::pair<std::string, std::string>>{
           {spent + ", Rolling 24-hour window\"", day},
           {spent + " rolling 744-hours\"",
            "744h 100 until 1802678400" + note + ", rolling 744h window"},
           {spent + "\",\"message\":null", "Quota 100" + note},
           {spent + " rolling 0-hour\"", "Quota 100" + note},
           {spent + " rolling 745-hour\"", "Quota 100" + note},
           {spent + " rolling -hour\"", "Quota 100" + note},
           {spent + " rolling x, rolling 24-hour\"", "Quota 100" + note},
           {spent + "\",\"message\":\"rolling 1-hour\"", ""},
           {R"("message":"subscription: rolling 5-hour")", ""},
           {R"("message":"Subscription: usage-exhausted")", ""},
           {spent + "\",\"kind\":\"x\"", ""}}) {
    const std::string kind =
        ctx.find("kind") == std::string::npos ? R"(,"kind":"rate_limited")" : "";
    const auto line =
        GrokActivityLine::decode(std::string("{\"ctx\":{").append(ctx).append(kind).append("}}"))
            .value();
    EXPECT_EQ(line.isQuotaExhaustion(), !full.empty()) << ctx;
    const auto reading = line.exhaustedSnapshot("X", at(0), at(10801));
    EXPECT_TRUE(full.empty() || toldInFull(reading) == full) << toldInFull(reading);
    EXPECT_EQ(reading.health, Health::stale("3h ago"));
  }
}

class GrokProviderTest : public testing::Test {
 protected:
  // What a regular read at that time answers.
  std::string answer(double now) { return told(provider.fetch(at(now))); }

  test::GrokHome home;
  GrokProvider provider = home.provider();
};

TEST_F(GrokProviderTest, TellsWhatItHas) {
  EXPECT_EQ(provider.fetch(at(5)).health, Health::notInstalled("Grok not detected"));
  home.write("\n");
  EXPECT_EQ(provider.fetch(at(5)).health, Health::reconnect("Run Grok once to see usage"));
  home.append(billingLine("15", 10));
  const ProviderSnapshot good = provider.fetch(at(20));
  EXPECT_EQ(told(good), "Weekly 15 @10, ok");
  EXPECT_EQ(good.planLabel, "Grok X");
  EXPECT_EQ(provider.lastProcessed().value().path, home.log);
  fs::remove(home.cached);
  home.append("{}\n");
  EXPECT_EQ(provider.fetch(at(20)), good);
  EXPECT_FALSE(fs::exists(home.cached)) << "saved once";
  home.write("\n" + billingLine("16", 10) + "{}\n");
  test::setModified(home.log, at(30));
  EXPECT_EQ(answer(40), "Weekly 16 @10, ok") << "of the same size";
  fs::rename(home.log, home.log + ".1");
  fs::create_symlink(home.log + ".1", home.log);
  EXPECT_EQ(answer(40), "Weekly 16 @10, no recent usage") << "a link is not read";
  fs::remove(home.log);
  const std::string untold = test::logLine(std::string(GrokBillingLine::billingMsg), 25);
  home.write(untold + exhaustionLine(30));
  EXPECT_EQ(home.provider().fetch(at(40)).planLabel, "Grok X") << "of the cached reading";
  fs::remove(home.log);
  EXPECT_EQ(told(home.provider().fetch(at(20))), "Weekly 16 @10, Grok not running");
  provider.forgetCache();
  EXPECT_EQ(home.provider().lastGood(), std::nullopt);
  home.write(untold);
  EXPECT_EQ(provider.fetch(at(30)).planLabel, std::nullopt);
  home.write(billingLine("null", 10));
  const ProviderSnapshot none = provider.fetch(at(20));
  EXPECT_EQ(told(none), "@10, no quota reported");
  EXPECT_EQ(none.planLabel, "Grok X");
  EXPECT_EQ(none.extraNote, grokNoPercentNote);
  home.append(untold);
  EXPECT_EQ(provider.fetch(at(30)).planLabel, "Grok X") << "the last that was told";
}

TEST(GrokProvider, TheNewerOfTwoReadingsWins) {
  const std::string p10 = billingLine("15", 10);
  const std::string ends = billingLine("15", 10, 1000);
  const std::string ends2 = billingLine("null", 20, 1010);  // the same minute
  const std::string other = billingLine("null", 20, 9000);
  const std::string none20 = billingLine("null", 20);
  const std::string p5 = billingLine("9", 5);
  const std::string e5 = exhaustionLine(5);
  const std::string e10 = exhaustionLine(10);
  const std::string day20 = exhaustionLine(20, "rolling 24-hour window");
  const std::string p400 = billingLine("40", 400);
  const auto dateless = [](std::string line) { return line.replace(2, 2, "xx"); };
  // What was read before, at 12; the log, modified at 70; the time of two reads; their answer.
  const std::vector<std::tuple<std::string, std::string, double, std::string>> cases = {
      {"", p10, 20000, "Weekly 15 @10, 5h ago"},
      {"", p10 + p5, 20, "Weekly 9 @5, ok"},
      {"", p10 + day20, 86419, "24h 100 @20, 23h ago"},
      {"", p10 + day20, 86420, "Weekly 15 @10, 1d ago"},
      {"", p10 + e5, 30, "Weekly 15 @10, ok"},  // the clock was set back between the two
      {"", p10 + e10, 30, "Quota 100 @10, ok"},
      {"", p10 + dateless(e5), 90, "Quota 100 @70, ok"},
      {"", dateless(p10) + e5, 90, "Quota 100 @5, ok"},
      {"", e10 + p10, 30, "Weekly 15 @10, ok"},
      {"", ends + day20 + billingLine("null", 30, 1010), 40, "24h 100 @20, ok"},
      {"", e5 + none20, 30, "@20, no quota reported, not cached"},
      {"", day20 + none20, 30, "@20, no quota reported, not cached"},
      {"", none20 + day20, 30, "24h 100 @20, ok, not cached"},
      {"", ends + ends2, 2e4, "Weekly 15 @10, 5h ago"},
      {"", ends + none20, 10810, "Weekly 15 @10, ok"},
      {"", ends + none20, 10811, "@20, no quota reported, not cached"},
      {p10, doneLine(20), 10810, "Weekly 15 @10, ok"},
      {p10, doneLine(20), 10811, "Weekly 15 @10, no recent usage"},
      {p10, p5, 20, "Weekly 15 @10, ok"},
      {p10, e5, 20, "Weekly 15 @10, ok"},
      {p10, e10, 20, "Quota 100 @10, ok"},
      {p10, billingLine("null", 5), 2e4, "Weekly 15 @10, 5h ago"},
      {ends, ends2, 30, "Weekly 15 @10, ok"},
      {ends, e5 + other, 30, "@20, no quota reported, not cached"},
      // From the future: more than 300 s ahead.
      {"", p5 + p400, 100, "Weekly 40 @400, ok"},
      {"", p5 + p400, 99, "Weekly 9 @5, ok"},
      {"", p400, 99, "Weekly 40 @400, ok"},
      {"", p400 + p5, 99, "Weekly 9 @5, ok"},
      {p400, p5, 99, "Weekly 9 @5, ok"},
      {p400, e5, 99, "Quota 100 @5, ok"},
      {p400, billingLine("null", 5), 99, "@5, no quota reported, not cached"},
      {"", p5 + exhaustionLine(400), 99, "Weekly 9 @5, ok"},
      {"", p5 + e10 + doneLine(400), 99, "Quota 100 @10, ok"},
      {"", p5 + billingLine("null", 400, 9000), 99, "Weekly 9 @5, ok"}};
  for (const auto& [before, log, now, expected] : cases) {
    const test::GrokHome home;
    if (!before.empty()) {
      home.write(before);
      (void)home.provider().fetch(at(12));
    }
    home.write(log);
    test::setModified(home.log, at(70));
    GrokProvider provider = home.provider();
    for (int i = 0; i < 2; ++i) {
      const std::string reading = told(provider.fetch(at(now)));
      EXPECT_EQ(reading + (fs::exists(home.cached) ? "" : ", not cached"), expected) << log;
    }
    const auto cached = DiskCache(home.surroundings).load(ProviderID::grok);
    EXPECT_TRUE(!cached || cached->windows[0].label == "Weekly") << log;
  }
}

TEST_F(GrokProviderTest, AnExhaustionHoldsUntilItIsOver) {
  const auto spent = [](double time) { return exhaustionLine(time, "rolling 1-hour window"); };
  const std::string filler(400, '\n');
  enum class Log : std::uint8_t { isNew, grows, goes };
  // What becomes of the log, when it is read next, what is answered.
  const std::vector<std::tuple<Log, std::string, double, std::string>> steps = {
      {Log::isNew, billingLine("15", 10) + spent(20), 30, "1h 100 @20, ok"},
      {Log::goes, "", 40, "1h 100 @20, Grok not running"},
      {Log::isNew, "\n", 3619, "1h 100 @20, ok"},  // rotated
      {Log::grows, "", 3620, "Weekly 15 @10, ok, taken back"},
      {Log::grows, exhaustionLine(3750), 3760, "Quota 100 @3750, ok"},
      {Log::isNew, filler, 3770, "Quota 100 @3750, ok"},
      {Log::grows, doneLine(3780), 3790, "Weekly 15 @10, ok, taken back"},
      {Log::isNew, "\n", 3795, "Weekly 15 @10, ok, taken back"},
      {Log::isNew, spent(3800), 3810, "1h 100 @3800, ok"},
      {Log::grows, spent(3790), 3815, "1h 100 @3790, ok, taken back"},  // a clock set back
      {Log::grows, doneLine(3780), 3820, "Weekly 15 @10, ok, taken back"},
      {Log::isNew, spent(3830), 3840, "1h 100 @3830, ok"},
      {Log::isNew, doneLine(3850), 3860, "Weekly 15 @10, ok, taken back"},  // in its place
      {Log::isNew, spent(3870), 3880, "1h 100 @3870, ok"},
      {Log::isNew, filler + billingLine("16", 3860), 3890, "Weekly 16 @3860, ok, taken back"},
      {Log::isNew, spent(3900), 3910, "1h 100 @3900, ok"},
      {Log::goes, "", 3910, "1h 100 @3900, Grok not running"},
      {Log::isNew, filler + billingLine("16", 3860), 3920, "1h 100 @3900, ok"},
      {Log::grows, billingLine("17", 3930), 3940, "Weekly 17 @3930, ok"}};
  for (const auto& [log, content, now, expected] : steps) {
    if (log == Log::goes) {
      fs::rename(home.log, home.log + ".1");  // whose number stays in use
    } else if (log == Log::grows) {
      home.append(content);
    } else {
      home.write(content);
    }
    const std::string reading = answer(now);
    EXPECT_EQ(reading + (provider.takesBack() ? ", taken back" : ""), expected) << "at " << now;
  }
  home.write(spent(3940));
  (void)provider.fetch(at(3950));
  provider.forgetCache();
  home.write("\n");
  EXPECT_EQ(answer(3960), "@3960, Run Grok once to see usage");
}

TEST_F(GrokProviderTest, ALineWithoutATimeIsNotDatedAnew) {
  std::string exhausted = exhaustionLine(0, "rolling 1-hour window");
  std::string billing = billingLine("15", 0);
  exhausted[2] = billing[2] = 'x';
  home.write(billing + exhausted);
  for (const double modified : {70, 100, 130}) {
    test::setModified(home.log, at(modified));
    EXPECT_EQ(told(provider.rescan(at(140))), "1h 100 @70, ok");
  }
  home.append("{}\n");
  test::setModified(home.log, at(3000));
  EXPECT_EQ(answer(3669), "1h 100 @70, ok");
  test::setModified(home.log, at(3600));
  EXPECT_EQ(answer(3670), "Weekly 15 @130, ok");
  home.write(billing);
  test::setModified(home.log, at(4000));
  EXPECT_EQ(answer(4000), "Weekly 15 @4000, ok");
  fs::rename(home.log, home.log + ".1");
  home.write(billing);
  test::setModified(home.log, at(5000));
  EXPECT_EQ(answer(5000), "Weekly 15 @5000, ok") << "another file's";
}

TEST_F(GrokProviderTest, TrustsItsMemoOnlyForTheSameFile) {
  const auto reads = [&](const char* percent) {  // in as many bytes, with the same end
    home.write(billingLine(percent, 10) + std::string(300, 'x') + "\n");
    test::setModified(home.log, at(30));
    return provider.fetch(at(40)).headlinePercent();
  };
  EXPECT_EQ(reads("15"), 15);
  EXPECT_EQ(reads("16"), 15);
  EXPECT_EQ(provider.rescan(at(40)).headlinePercent(), 16);
  provider.forgetCache();
  EXPECT_EQ(reads("17"), 17);
  fs::rename(home.log, home.log + ".1");
  EXPECT_EQ(reads("18"), 18);
}

TEST_F(GrokProviderTest, KeepsToItsBudgets) {
  constexpr std::size_t mib = 1UL << 20;
  const std::string line = billingLine("15", 10);
  const std::string open = line.substr(0, line.size() - 2);
  const std::size_t rest = 4 * mib - line.size();  // of the budget
  const auto pad = [](std::size_t bytes) { return std::string(bytes - 1, 'x') + "\n"; };
  const auto longLine = [&](std::size_t bytes) {  // of so many bytes, without the newline
    return open + std::string(bytes - line.size() + 1, ' ') + "}\n";
  };
  const std::vector<std::tuple<const char*, std::string, bool>> cases = {
      {"just within the budget", "\n" + line + pad(rest - 1), true},
      {"begins where the budget does", "\n" + line + pad(rest), false},
      {"the whole log", line + pad(rest), true},
      {"before a line of 300 KiB", line + longLine(300'000), true},
      {"of 256 KiB, across two chunks", longLine(mib / 4) + pad(mib / 2 - 100), true},
      {"and a byte", longLine(mib / 4 + 1) + pad(mib / 2 - 100), false}};
  for (const auto& [what, content, found] : cases) {
    home.write(content);
    const auto scan = GrokLogScan::scanBilling(*BoundedFile::open(home.log), at(0), at(0), {}, 0);
    EXPECT_EQ(scan.usable.has_value(), found) << what;
  }
  home.write(pad(mib) + line);
  const auto file = BoundedFile::open(home.log);
  fs::resize_file(home.log, mib);  // while it is being read
  const auto [scan, memo] = GrokLogScan::memoizedScan(*file, at(0), {}, at(0), {});
  EXPECT_TRUE(!scan.usable && !memo);

  const GrokLogScan::BillingScan known{.usable = {{.line = {}, .ts = {}, .at = 10}}};
  EXPECT_TRUE(GrokLogScan::merged({}, known, 109, 100).usable);
  EXPECT_FALSE(GrokLogScan::merged({}, known, 110, 100).usable) << "begins where the budget does";
}

// Lines of a log: now and then one that matters, some of them written under a wrong clock.
std::string randomLines(std::mt19937& random, std::size_t count, double now = 0) {
  static int serial = 0;
  std::string lines;
  for (std::size_t i = 0; i < count; ++i) {
    const double time = now + (++serial % 5 == 0 ? static_cast<double>(random() % 900) : 0);
    const std::string filler(random() % 240, 'x');
    const std::vector<std::string> notable = {
        billingLine(std::to_string(serial % 100), time), billingLine("null", time, time + 100),
        doneLine(time), exhaustionLine(time), "{\"rate_limited\":\"" + filler + "\"}\n"};
    const std::size_t kind = random() % 16;
    lines += kind < notable.size() ? notable[kind] : std::to_string(serial) + "\n";
  }
  return lines;
}

TEST_F(GrokProviderTest, ScansLikeAWalkOfAllLinesWithAMemoAndWithout) {
  std::mt19937 random(2);
  std::string content;
  std::string written;  // by the tool, not all of it at once
  std::optional<GrokLogScan::ScanMemo> memo;
  double now = 0;
  double ticks = 0;  // of the file system's clock; more than one append may fall into one
  int extended = 0;
  for (int step = 0; step < 4'000; ++step) {
    const unsigned event = random() % 32;
    if (event == 0) {
      content.resize(random() % (content.size() + 1));
    } else if (event == 1) {  // rewritten, to a larger size too
      content = randomLines(random, random() % 60, now);
    } else if (event == 2) {  // rotated
      fs::rename(home.log, home.log + ".1");
      content.clear();
    } else if (event > 3) {
      written += randomLines(random, random() % 5, now);
      const std::size_t flushed = random() % (written.size() + 1);
      content += written.substr(0, flushed);
      written.erase(0, flushed);
    }
    home.write(content);
    ticks += event < 3 || random() % 2 == 0 ? 1 : 0;
    test::setModified(home.log, at(ticks));
    now += static_cast<double>(random() % 100) - (random() % 8 == 0 ? 250 : 15);
    const Limits limits{.chunkSize = 1 + random() % 300, .searchBudget = 1500, .maxLine = 190};
    const auto file = BoundedFile::open(home.log);
    auto [scan, renewed] = GrokLogScan::memoizedScan(*file, at(0), memo, at(now), limits);
    ASSERT_EQ(test::places(scan), test::places(test::reference(content, limits, at(now))));
    const Limits other{
        .chunkSize = 1 + random() % 90, .searchBudget = 900, .maxLine = 130 + random() % 60};
    ASSERT_EQ(test::places(GrokLogScan::scanBilling(*file, at(0), at(now), other, 0)),
              test::places(test::reference(content, other, at(now))));
    extended += scan.reachedFloor && content.size() > limits.searchBudget ? 1 : 0;
    memo = std::move(renewed);
  }
  EXPECT_GT(extended, 150);
  const std::string line = billingLine("15", 10);  // across the border of two searched blocks
  for (std::size_t after = 16384 - line.size(); after < 16384; ++after) {
    home.write(line + std::string(after, 'x') + "\n");
    const auto file = BoundedFile::open(home.log);
    EXPECT_TRUE(GrokLogScan::scanBilling(*file, at(0), at(0), {}, 0).usable) << after;
  }
}

}  // namespace
}  // namespace marigold
