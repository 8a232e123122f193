#include <gmock/gmock.h>

#include "linux/system/BusLink.h"
#include "linux/system/IcuLocalTimeText.h"
#include "linux/system/LinuxSurroundings.h"
#include "model/DiskCache.h"
#include "support/LocalTimeContract.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

TEST(LinuxSurroundings, FollowTheXDGRules) {
  const Surroundings plain = linuxSurroundings({{"HOME", "/u/"}, {"TERM", "x"}});
  const Surroundings chosen = linuxSurroundings({{"HOME", "/u"},
                                                 {"XDG_DATA_HOME", "/data/"},
                                                 {"XDG_CACHE_HOME", "/caches"},
                                                 {"XDG_CONFIG_HOME", "relative"},
                                                 {"TMPDIR", "/t"}});
  const auto places = [](const Surroundings& of) {
    return std::vector{of.home,         of.applicationSupport, of.caches,
                       of.httpStorages, of.configuration,      of.temporary};
  };
  EXPECT_THAT(places(plain), testing::ElementsAre("/u", "/u/.local/share", "/u/.cache", "/u/.cache",
                                                  "/u/.config", "/tmp"));
  EXPECT_THAT(places(chosen),
              testing::ElementsAre("/u", "/data", "/caches", "/caches", "/u/.config", "/t"))
      << "a relative path is ignored";
  EXPECT_EQ(plain.bundleIdentifier, builtInBundleIdentifier());
  EXPECT_TRUE(plain.environment.empty());
  EXPECT_EQ(linuxSurroundings({{"XDG_CONFIG_HOME", "/c"}}).configuration, "/c");
  for (const char* home : {"", "relative"}) {
    EXPECT_TRUE(linuxSurroundings({{"HOME", home}}).home.starts_with('/')) << "the user's entry";
  }
}

TEST(LinuxSurroundings, KeepTheVariablesThatDecideSomething) {
  Environment all;
  for (const char* name : {"MARIGOLD_CACHE_DIR", "CLAUDE_CONFIG_DIR", "CODEX_HOME", "GROK_HOME",
                           "https_proxy", "HTTPS_PROXY", "no_proxy", "NO_PROXY"}) {
    all.emplace(name, name);
  }
  Environment more = all;
  more.insert({{"HOME", "/u"}, {"LD_PRELOAD", "x"}});
  const Surroundings kept = linuxSurroundings(more);
  EXPECT_EQ(Environment(kept.environment.begin(), kept.environment.end()), all);

  EXPECT_EQ(timeLocale({{"LC_ALL", "a"}, {"LC_TIME", "b"}, {"LANG", "c"}}), "a");
  EXPECT_EQ(timeLocale({{"LC_ALL", ""}, {"LC_TIME", "b"}, {"LANG", "c"}}), "b");
  EXPECT_EQ(timeLocale({{"LC_CTYPE", "b"}, {"LANG", "c"}}), "c");
  EXPECT_EQ(timeLocale({}), "");
}

TEST(LinuxSurroundings, SayWhereTheBusesAre) {
  const std::string named = "unix:path=/x";
  EXPECT_EQ(sessionBusAddress({{"DBUS_SESSION_BUS_ADDRESS", named}}), named);
  EXPECT_EQ(systemBusAddress({{"DBUS_SYSTEM_BUS_ADDRESS", named}}), named);
  EXPECT_EQ(systemBusAddress({{"DBUS_SYSTEM_BUS_ADDRESS", ""}}),
            "unix:path=/run/dbus/system_bus_socket");
  const test::TemporaryDirectory runtime;
  runtime.write("bus", "no socket");
  EXPECT_EQ(sessionBusAddress({{"XDG_RUNTIME_DIR", runtime.path()}}), "");
}

constexpr Date friday{Seconds{1'781'270'000}};  // 2026-06-12 13:13:20 UTC

TEST(IcuLocalTimeText, FollowsTheLocale) {
  for (const auto& [locale, text] : test::fridayAfternoons) {
    EXPECT_EQ(IcuLocalTimeText(locale, "Europe/Berlin").weekdayAndTime(friday), text) << locale;
  }
  const std::string american = "Fri 3:13\u202FPM";
  for (const auto& [locale, text] :
       std::vector<std::pair<std::string, std::string>>{{"C.UTF-8", american},
                                                        {"de_DE@euro", "Fr., 15:13"},
                                                        {"sr_RS.UTF-8@latin", "pet 15:13"},
                                                        {std::string(4000, 'a'), american}}) {
    EXPECT_EQ(IcuLocalTimeText(locale, "Europe/Berlin").weekdayAndTime(friday), text) << locale;
  }
}

TEST(IcuLocalTimeText, FollowsTheSystemsZoneWhileRunning) {
  const IcuLocalTimeText local("de_DE.UTF-8");
  for (const auto& [zone, text] : {std::pair("AAA-5:30", "Fr., 18:43"), {"BBB+14", "Do., 23:13"}}) {
    ::setenv("TZ", zone, 1);  // NOLINT(concurrency-mt-unsafe): this test program has one thread
    EXPECT_EQ(local.weekdayAndTime(friday), text);
  }
  EXPECT_FALSE(local.weekdayAndTime(distantFuture).empty());
  ::unsetenv("TZ");  // NOLINT(concurrency-mt-unsafe)
}

}  // namespace
}  // namespace marigold
