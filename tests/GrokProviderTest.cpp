#include <random>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "support/GrokHome.h"
#include "support/GrokReference.h"
#include "support/OrdinaryUser.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using test::at, test::billingLine, test::doneLine, test::exhaustionLine;
using Limits = GrokProvider::Limits;

// "Weekly 15 @10, ok": the windows, when the reading was taken and its health.
std::string told(const ProviderSnapshot& reading) {
  std::ostringstream text;
  for (const UsageWindow& window : reading.windows) {
    text << window.label << ' ' << window.percent << ' ';
  }
  text << '@' << secondsBetween(at(0), reading.capturedAt) << ", "
       << (reading.health == Health::ok() ? "ok" : reading.health.reason());
  return text.str();
}

TEST(GrokProvider, TellsWhatItHas) {
  const test::GrokHome home;
  GrokProvider provider = home.provider();
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
  EXPECT_EQ(told(provider.fetch(at(40))), "Weekly 16 @10, ok") << "of the same size";
  const std::string untold = test::logLine(std::string(GrokBillingLine::billingMsg), 25);
  home.write(untold + exhaustionLine(30));
  EXPECT_EQ(home.provider().fetch(at(40)).planLabel, "Grok X") << "of the cached reading";
  fs::remove(home.log);
  EXPECT_EQ(told(home.provider().fetch(at(20))), "Weekly 16 @10, Grok not running");
  provider.forgetCache();
  EXPECT_EQ(provider.fetch(at(20)).health, Health::notInstalled("Grok not detected"));
  EXPECT_EQ(home.provider().lastGood(), std::nullopt);
  home.write(untold);
  EXPECT_EQ(provider.fetch(at(30)).planLabel, std::nullopt);
  home.write(billingLine("null", 10));
  const ProviderSnapshot none = provider.fetch(at(20));
  EXPECT_EQ(none.health, Health::stale("no quota reported"));
  EXPECT_EQ(none.planLabel, "Grok X");
  EXPECT_EQ(none.extraNote, grokNoPercentNote);
  home.write(untold);
  EXPECT_EQ(provider.fetch(at(30)).planLabel, "Grok X");
}

TEST(GrokProvider, TheNewerOfTwoReadingsWins) {
  const std::string p10 = billingLine("15", 10);
  const std::string ends = billingLine("15", 10, 1000);
  const std::string ends2 = billingLine("null", 20, 1010);  // the same minute
  const std::string other = billingLine("null", 20, 9000);
  const std::string none20 = billingLine("null", 20);
  const std::string p5 = billingLine("9", 5);
  const std::string e5 = exhaustionLine(5);
  const std::string day20 = exhaustionLine(20, "rolling 24-hour window");
  // What was read before, at 12; the log, modified at 70; the time of two reads; their answer.
  const std::vector<std::tuple<std::string, std::string, double, std::string>> cases = {
      {"", p10, 20000, "Weekly 15 @10, 5h ago"},
      {"", p10 + p5, 20, "Weekly 9 @5, ok"},
      {"", p10 + day20, 86419, "24h 100 @20, 23h ago"},
      {"", p10 + day20, 86420, "Weekly 15 @10, 1d ago"},
      {"", p10 + e5, 3e5, "Quota 100 @5, 3d ago"},  // the clock was set back between the two
      {"", ends + e5 + ends2, 30, "Quota 100 @5, ok"},
      {"", e5 + none20, 30, "@20, no quota reported, not cached"},
      {"", ends + ends2, 2e4, "Weekly 15 @10, 5h ago"},
      {"", ends + none20, 10810, "Weekly 15 @10, ok"},
      {"", ends + none20, 10811, "@20, no quota reported, not cached"},
      {p10, doneLine(20), 10810, "Weekly 15 @10, ok"},
      {p10, doneLine(20), 10811, "Weekly 15 @10, no recent usage"},
      {p10, p5, 20, "Weekly 15 @10, ok"},
      {p10, e5, 20, "Weekly 15 @10, ok"},
      {p10, billingLine("null", 5), 2e4, "Weekly 15 @10, 5h ago"},
      {p10, p5, 7, "Weekly 9 @5, ok"},  // what was read before is from the future
      {p10, e5, 7, "Quota 100 @5, ok"},
      {p10, billingLine("null", 5), 7, "@5, no quota reported, not cached"},
      {ends, ends2, 30, "Weekly 15 @10, ok"},
      {ends, e5 + other, 30, "@20, no quota reported, not cached"}};
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

TEST(GrokProvider, TakesBackAnExhaustionThatIsOver) {
  const test::GrokHome home;
  home.write(billingLine("15", 10) + exhaustionLine(20, "rolling 1-hour window"));
  GrokProvider provider = home.provider();
  EXPECT_EQ(told(provider.fetch(at(30))), "1h 100 @20, ok");
  fs::remove(home.log);
  EXPECT_EQ(told(provider.fetch(at(40))), "@10, Grok not running");
  home.write("\n");
  EXPECT_EQ(told(provider.fetch(at(3619))), "1h 100 @20, ok") << "the log was rotated";
  EXPECT_EQ(told(provider.fetch(at(3620))), "@10, no recent usage");
  EXPECT_EQ(told(provider.fetch(at(3739))), "@10, no recent usage")
      << "nor may this answer be lost";
  EXPECT_EQ(told(provider.fetch(at(3740))), "Weekly 15 @10, ok");
  home.append(exhaustionLine(3750));
  EXPECT_EQ(told(provider.fetch(at(3760))), "Quota 100 @3750, ok");
  home.write("\n");
  EXPECT_EQ(told(provider.fetch(at(3770))), "@10, no recent usage") << "it has no end";
  home.write(exhaustionLine(3780, "rolling 1-hour window"));
  EXPECT_EQ(told(provider.fetch(at(3790))), "1h 100 @3780, ok");
  home.append(doneLine(3800));
  EXPECT_EQ(told(provider.fetch(at(3810))), "@10, no recent usage");
  home.write("\n");
  EXPECT_EQ(told(provider.fetch(at(3820))), "@10, no recent usage") << "it was over";
  home.write(exhaustionLine(3830, "rolling 1-hour window"));
  EXPECT_EQ(told(provider.fetch(at(3840))), "1h 100 @3830, ok");
  home.append(billingLine("16", 3820));
  EXPECT_EQ(told(provider.fetch(at(3825))), "Weekly 16 @3820, ok") << "the clock was set back";
  home.append(exhaustionLine(3830, "rolling 1-hour window"));
  EXPECT_EQ(told(provider.fetch(at(3840))), "1h 100 @3830, ok");
  provider.forgetCache();
  home.write("\n");
  EXPECT_FALSE(provider.fetch(at(3850)).isUsable());
  home.write(billingLine("15", 10));
  EXPECT_EQ(told(provider.fetch(at(3850))), "Weekly 15 @10, ok");
}

TEST(GrokProvider, ALineWithoutATimeIsNotDatedAnew) {
  const test::GrokHome home;
  std::string exhausted = exhaustionLine(0, "rolling 1-hour window");
  std::string billing = billingLine("15", 0);
  exhausted[2] = billing[2] = 'x';
  home.write(billing + exhausted);
  GrokProvider provider = home.provider();
  for (const double modified : {70, 100, 130}) {
    test::setModified(home.log, at(modified));
    EXPECT_EQ(told(provider.fetch(at(140))), "1h 100 @70, ok");
  }
  home.append("{}\n");
  test::setModified(home.log, at(3000));
  EXPECT_EQ(told(provider.fetch(at(3669))), "1h 100 @70, ok");
  EXPECT_EQ(told(provider.fetch(at(3670))), "Weekly 15 @70, ok");
}

TEST(GrokProvider, TrustsItsMemoOnlyForTheSameFile) {
  const test::GrokHome home;
  const auto put = [&](const char* percent) {  // in as many bytes, with the same end
    home.write(billingLine(percent, 10) + std::string(300, 'x') + "\n");
    test::setModified(home.log, at(30));
  };
  put("15");
  GrokProvider provider = home.provider();
  EXPECT_EQ(told(provider.fetch(at(40))), "Weekly 15 @10, ok");
  put("16");
  EXPECT_EQ(told(provider.fetch(at(40))), "Weekly 15 @10, ok");
  EXPECT_EQ(told(provider.rescan(at(40))), "Weekly 16 @10, ok");
  put("17");
  provider.forgetCache();
  EXPECT_EQ(told(provider.fetch(at(40))), "Weekly 17 @10, ok");
  fs::rename(home.log, home.log + ".1");
  put("18");
  EXPECT_EQ(told(provider.fetch(at(40))), "Weekly 18 @10, ok");
}

TEST(GrokProvider, KeepsToItsBudgets) {
  constexpr std::size_t mib = 1UL << 20;
  const std::string line = billingLine("15", 10);
  const std::string open = line.substr(0, line.size() - 2);
  const std::size_t rest = 4 * mib - line.size();  // of the budget
  const auto pad = [](std::size_t bytes) { return std::string(bytes - 1, 'x') + "\n"; };
  const auto longLine = [&](std::size_t bytes) {  // of so many bytes, without the newline
    return open + std::string(bytes - line.size() + 1, ' ') + "}\n";
  };
  std::string hostile = line;
  while (hostile.size() < 4 * mib - 300'000) {
    const std::size_t fill = hostile.size() < 2 * mib ? 1 : 262'000;
    hostile += "rate_limited\n{\"rate_limited\":\"billing: fetched credits config\"}\n";
    hostile += "{\"rate_limited\":\"" + std::string(fill, 'x') + "\"}\n";
  }
  const std::string deep = "{\"rate_limited\":" + std::string(200'000, '[') + "\n";
  const std::string bytes = "{\"rate_limited\":\"\xff\xc0\"}\n" + std::string(9, '\0') + "\n";
  const std::vector<std::tuple<const char*, std::string, bool>> cases = {
      {"3 MiB before the end", line + pad(3 * mib), true},
      {"5 MiB before the end", line + pad(5 * mib), false},
      {"just within the budget", "\n" + line + pad(rest - 1), true},
      {"begins where the budget does", "\n" + line + pad(rest), false},
      {"the whole log", line + pad(rest), true},
      {"before a line of 300 KiB", line + longLine(300'000), true},
      {"of 256 KiB", longLine(mib / 4), true},
      {"of 256 KiB and a byte", longLine(mib / 4 + 1), false},
      {"of 256 KiB, across two chunks", longLine(mib / 4) + pad(mib / 2 - 100), true},
      {"too long, across two chunks", longLine(mib / 4 + 1) + pad(mib / 2 - 100), false},
      {"still being written", open, false},
      {"before lines that only seem to matter", hostile, true},
      {"before nesting and what is not UTF-8", line + deep + bytes, true},
      {"no newline", std::string(5 * mib, 'x'), false},
      {"newlines only", std::string(5 * mib, '\n'), false}};
  const test::GrokHome home;
  for (const auto& [what, content, found] : cases) {
    home.write(content);
    const auto scan = GrokProvider::scanBilling(*BoundedFile::open(home.log), at(0), Limits{}, 0);
    EXPECT_EQ(scan.usable.has_value(), found) << what;
  }
  home.write(pad(mib) + line);
  const auto file = BoundedFile::open(home.log);
  fs::resize_file(home.log, mib);  // while it is being read
  const auto [scan, memo] = GrokProvider::memoizedScan(*file, at(0), {}, at(0), Limits{});
  EXPECT_TRUE(!scan.usable && !memo);

  const GrokProvider::BillingScan known{.usable = {{.line = {}, .ts = {}, .at = 10}}};
  EXPECT_TRUE(GrokProvider::merged({}, known, 109, 100).usable);
  EXPECT_FALSE(GrokProvider::merged({}, known, 110, 100).usable) << "begins where the budget does";
}

TEST(GrokProvider, ReadsNothingButARegularFile) {
  const test::GrokHome home;
  home.write(billingLine("15", 10));
  GrokProvider provider = home.provider();
  (void)provider.fetch(at(20));
  fs::permissions(home.log, fs::perms::none);
  test::asOrdinaryUser(
      [&] { EXPECT_EQ(told(provider.fetch(at(30))), "Weekly 15 @10, no recent usage"); });
  fs::permissions(home.log, fs::perms::owner_all);
  const std::string elsewhere = home.home.write("elsewhere", billingLine("99", 20));
  const std::vector<std::function<void()>> replacements = {
      [&] { fs::create_symlink(elsewhere, home.log); },
      [&] { ASSERT_EQ(::mkfifo(home.log.c_str(), 0600), 0); },
      [&] { fs::create_directory(home.log); }};
  for (const auto& replace : replacements) {
    fs::remove(home.log);
    replace();
    EXPECT_EQ(told(provider.fetch(at(30))), "Weekly 15 @10, no recent usage");
  }
}

// Lines of a log: now and then one that matters.
std::string randomLines(std::mt19937& random, std::size_t count) {
  static int serial = 0;
  std::string lines;
  for (std::size_t i = 0; i < count; ++i) {
    const double time = ++serial;
    const std::string filler(random() % 240, 'x');
    const std::vector<std::string> notable = {
        billingLine(std::to_string(serial % 100), time), billingLine("null", time, time + 100),
        doneLine(time), exhaustionLine(time), "{\"rate_limited\":\"" + filler + "\"}\n"};
    const std::size_t kind = random() % 16;
    lines += kind < notable.size() ? notable[kind] : std::to_string(serial) + "\n";
  }
  return lines;
}

TEST(GrokProvider, DecodesEveryLineWholeOrNotAtAll) {
  std::mt19937 random(1);
  const test::GrokHome home;
  for (std::size_t longest = 130; longest < 190; longest += 2) {
    std::string content = randomLines(random, 12);
    content.resize(content.size() - random() % 40);
    home.write(content);
    const auto file = BoundedFile::open(home.log);
    for (std::size_t chunk = 1; chunk < 90; ++chunk) {
      const Limits limits{.chunkSize = chunk, .searchBudget = 900, .maxLine = longest};
      const auto scan = GrokProvider::scanBilling(*file, at(0), limits, 0);
      EXPECT_EQ(test::places(scan), test::places(test::reference(content, limits))) << content;
    }
  }
  const std::string line = billingLine("15", 10);  // across the border of two searched blocks
  for (std::size_t after = 16384 - line.size(); after < 16384; ++after) {
    home.write(line + std::string(after, 'x') + "\n");
    const auto file = BoundedFile::open(home.log);
    EXPECT_TRUE(GrokProvider::scanBilling(*file, at(0), Limits{}, 0).usable) << after;
  }
}

TEST(GrokProvider, AMemoChangesNothingButTheCost) {
  std::mt19937 random(2);
  const test::GrokHome home;
  std::string content;
  std::string written;  // by the tool, not all of it at once
  std::optional<GrokProvider::ScanMemo> memo;
  double now = 0;
  double ticks = 0;  // of the file system's clock; more than one append may fall into one
  int extended = 0;
  for (int step = 0; step < 20'000; ++step) {
    const unsigned event = random() % 32;
    if (event == 0) {
      content.resize(random() % (content.size() + 1));
    } else if (event == 1) {  // rewritten, to a larger size too
      content = randomLines(random, random() % 60);
    } else if (event == 2) {  // rotated
      fs::rename(home.log, home.log + ".1");
      content.clear();
    } else if (event > 3) {
      written += randomLines(random, random() % 5);
      const std::size_t flushed = random() % (written.size() + 1);
      content += written.substr(0, flushed);
      written.erase(0, flushed);
    }
    home.write(content);
    ticks += event < 3 || random() % 2 == 0 ? 1 : 0;
    test::setModified(home.log, at(ticks));
    now += static_cast<double>(random() % 80) - 15;
    const Limits limits{.chunkSize = 1 + random() % 300, .searchBudget = 1500, .maxLine = 190};
    const auto file = BoundedFile::open(home.log);
    auto [scan, renewed] = GrokProvider::memoizedScan(*file, at(0), memo, at(now), limits);
    ASSERT_EQ(test::places(scan), test::places(test::reference(content, limits))) << content;
    extended += scan.reachedFloor && content.size() > limits.searchBudget ? 1 : 0;
    memo = std::move(renewed);
  }
  EXPECT_GT(extended, 1000);
}

}  // namespace
}  // namespace marigold
