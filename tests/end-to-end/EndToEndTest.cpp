// The built program where there is no display: what it prints tells what it read.

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <semaphore>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <gmock/gmock.h>
#include <sys/prctl.h>

#include "base/Time.h"
#include "end-to-end/ClaudeFixture.h"
#include "support/Canary.h"
#include "support/PrivateBus.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

using test::append;
using test::ChildProcess;
namespace fs = std::filesystem;

using EndToEnd = test::ProgramFixture;

TEST_F(EndToEnd, FollowsCodexAcrossItsLifeAndItsOwn) {
  {
    ChildProcess running = run({"/bin/sh", "-c", "exec $0 <&-", executable});
    const std::string launched = running.errorLine("launched (pid ").value_or("(pid 0");
    const int pid = std::stoi(launched.substr(launched.find("(pid ") + 5));
    EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(pid) + "/fd/0"), "/dev/null");
    EXPECT_TRUE(running.outputLine("Codex not detected"));
    codexSays(37, 12);
    EXPECT_TRUE(running.outputLine("Codex: 5h 37% used, updated just now"));
    EXPECT_EQ(running.outputLine("mark:"), "mark: 37%");

    fs::rename(home.path() + "/codex/sessions", home.path() + "/away");
    EXPECT_TRUE(running.outputLine("5h 37% used, data just now")) << "not running";
    fs::rename(home.path() + "/away", home.path() + "/codex/sessions");
    codexSays(46, 13);
    EXPECT_TRUE(running.outputLine("5h 46% used, updated just now"));
    EXPECT_EQ(running.end(SIGTERM), "0");
  }
  ChildProcess again = start();
  for (const char* const line :
       {"Codex: 5h 46% used, data just now", "Codex: Weekly 13% used, data just now",
        "Codex: 5h 46% used, updated just now", "Codex: Weekly 13% used, updated just now"}) {
    EXPECT_EQ(again.outputLine("Codex:"), line);
  }
  EXPECT_EQ(again.end(SIGINT), "0");
}

// A line of Grok's log, written now.
std::string grokLine(const std::string& msg, const std::string& ctx) {
  return R"({"ts":")" + isoText(std::chrono::system_clock::now()) + R"(","msg":")" + msg +
         R"(","ctx":)" + ctx + "}\n";
}
std::string billing(int percent) {
  const Date end = Date(std::chrono::system_clock::now()) + Seconds{4 * 86400.0};
  return grokLine("billing: fetched credits config",
                  R"({"config":{"creditUsagePercent":)" + std::to_string(percent) +
                      R"(,"currentPeriod":{"end":")" + isoText(end) +
                      R"("}},"subscriptionTier":"X Premium"})");
}

TEST_F(EndToEnd, FollowsGrokAsItsLogGrows) {
  environment["GROK_HOME"] = home.path() + "/grok";
  environment["LC_ALL"] = "de_DE.UTF-8";
  const std::string log = home.path() + "/grok/logs/unified.jsonl";
  append(log, billing(15));
  ChildProcess running = start();
  EXPECT_TRUE(running.outputLine("Claude Code not detected"));
  home.write(preferences, R"({"perProviderMigrated": true, "menubar.grok": true,
                               "resetWindows.grok": "weekly"})");
  EXPECT_THAT(running.outputLine("Grok: Weekly 15%").value_or(""),
              testing::ContainsRegex("used, updated just now, resets (Mo|Di|Mi|Do|Fr|Sa|So)\\., "));
  EXPECT_TRUE(running.outputLine("mark: 15% 3d23h"));
  append(log, grokLine("shell.turn.failed",
                       R"({"kind":"rate_limited",)"
                       R"("message":"subscription: usage-exhausted, rolling 24-hour window"})"));
  EXPECT_TRUE(running.outputLine("Grok: 24h 100% used, updated just now"));
  append(log, billing(16));
  EXPECT_TRUE(running.outputLine("Grok: Weekly 16% used, updated just now"));
  EXPECT_EQ(running.end(SIGHUP), "0");
}

TEST_F(EndToEnd, OneShotModesPrintAndExit) {
  codexSays(37, 12);
  const std::string picture = home.path() + "/mark.png";
  const std::string popover = home.path() + "/popover.png";
  fs::create_directory(environment["TMPDIR"] = home.path() + "/tmp");
  environment.erase("XDG_RUNTIME_DIR");  // by which the toolkit makes a directory of its own
  struct Row {
    std::vector<std::string> arguments;
    std::string prints;
    int status;
  };
  for (const Row& row :
       {Row{{"--selftest"}, "SELFTEST PASS\n", 0}, Row{{"--dump-codex"}, "at 20.*37", 0},
        Row{{"--help"}, "usage:", 0}, Row{{"--version"}, "Marigold", 0},
        Row{{"--version", "--selftest"}, "SELFTEST PASS\n", 0},
        Row{{"--shot", "/no/popover.png"}, "", 1}, Row{{"--shot-menubar", picture}, "", 0},
        Row{{"--shot-reconnect", popover, "dark"}, "", 0},
        Row{{"--shot-menubar", "/no/mark.png"}, "", 1}}) {
    const auto [printed, status] = start(row.arguments).finish();
    EXPECT_THAT(printed, testing::ContainsRegex(row.prints)) << row.arguments.front();
    EXPECT_EQ(status, row.status) << row.arguments.front();
  }
  EXPECT_GT(fs::file_size(picture), 50'000U);
  EXPECT_GT(fs::file_size(popover), 20'000U);
  EXPECT_TRUE(fs::is_empty(home.path() + "/tmp"));
  EXPECT_FALSE(fs::exists(home.path() + "/.local")) << "a one-shot mode leaves nothing behind";
}

TEST_F(EndToEnd, TheSelfTestNamesWhatIsBroken) {
  const std::string program = home.path() + "/bin/marigold";
  fs::create_directory(home.path() + "/bin");
  fs::copy_file(executable, program);
  struct Row {
    std::function<void()> breaking;
    std::string name;
  };
  for (const Row& row :
       {Row{[&] { environment["TMPDIR"] = "/no"; }, "a reading survives the cache"},
        Row{[&] { executable = program; },
            "marigold-request lies beside the program, safe from others"},
        Row{[&] { home.write(preferences, "{broken"); }, "the preferences can be read"},
        Row{[&] { environment["XDG_CONFIG_HOME"] = program; }, "the preferences can be stored"},
        Row{[&] { environment["FONTCONFIG_FILE"] = home.write("fonts", "<fontconfig/>"); },
            "a font draws the digits, all of one width"}}) {
    const auto before = std::pair(environment, executable);
    row.breaking();
    const auto [printed, status] = start({"--selftest"}).finish();
    EXPECT_THAT(printed, testing::HasSubstr("\n  FAIL  " + row.name + "\n"));
    EXPECT_THAT(printed, testing::EndsWith("SELFTEST FAIL\n"));
    EXPECT_EQ(status, 1);
    std::tie(environment, executable) = before;
    fs::remove_all(home.path() + "/.config");
  }
}

TEST_F(EndToEnd, LivesWithoutAPlaceToWriteAndWithABrokenSettingsFile) {
  codexSays(37, 12);
  append(home.path() + "/.local/share", "a file where a directory should be");
  home.write(preferences, "{broken");
  ChildProcess running = start();
  EXPECT_TRUE(running.outputLine("5h 37% used, updated just now"));
  EXPECT_TRUE(running.errorLine("preferences.json"));
  EXPECT_EQ(running.end(), "0");
  EXPECT_TRUE(fs::exists(home.path() + "/" + preferences + ".corrupt"));
}

TEST_F(EndToEnd, RefreshesWhenSomebodyMayLook) {
  const std::string rollout = home.write("codex/sessions/2026/11/22/rollout-a.jsonl", "");
  fs::create_hard_link(rollout, home.path() + "/unwatched.jsonl");
  const test::PrivateBus session(home, "session");
  const test::PrivateBus system(home, "system");
  environment["DBUS_SESSION_BUS_ADDRESS"] = session.address;
  environment["DBUS_SYSTEM_BUS_ADDRESS"] = system.address;
  const QDBusMessage screenWakes =
      QDBusMessage::createSignal("/ScreenSaver", "org.gnome.ScreenSaver", "ActiveChanged") << false;
  const QDBusMessage machineWakes =
      QDBusMessage::createSignal("/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                                 "PrepareForSleep")
      << false;
  for (const auto& [where, wakes, before, after] :
       {std::tuple(&session, screenWakes, "not detected", 37),
        {&system, machineWakes, "5h 37% used, updated", 38}}) {
    ChildProcess running = start();
    ASSERT_TRUE(running.outputLine(before));
    QDBusConnection bus = where->connect("bus");
    bus.registerService("org.freedesktop.login1");
    codexSays(after, 12, "../../unwatched");  // no event tells of its other name
    EXPECT_TRUE(test::eventually([&] {
      bus.send(wakes);  // it may not listen yet
      return running.outputLine("5h " + std::to_string(after) + "% used", 0.05).has_value();
    })) << after;
    EXPECT_EQ(running.end(), "0");
    QDBusConnection::disconnectFromBus("bus");
  }
}

TEST_F(EndToEnd, SaysHowOldAReadingIsWhenTheClockIsSet) {
  codexSays(37, 12);
  preload();
  ChildProcess running = start();
  ASSERT_TRUE(running.outputLine("5h 37% used, updated just now"));
  running.tell(SIGUSR1);
  EXPECT_TRUE(running.outputLine("5h was 37% used, 10m ago"));
  EXPECT_EQ(running.end(), "0");
}

using ClaudeEndToEnd = test::ClaudeFixture;

TEST_F(ClaudeEndToEnd, AsksThroughTheProxyWithTheLoginAndTellsWhyThereIsNothingNewer) {
  const test::TLSServer proxy(authority.issue("api.anthropic.com"), script, {.asProxy = true});
  const std::string cache = home.path() + "/.local/share/app.marigold.Marigold/cache/claude.json";
  struct Row {
    std::function<void()> given;
    std::string line;
    int connections;
  };
  for (const Row& row : {
           Row{[] {}, "Claude: 5h 42% used, updated just now", 1},
           Row{[this] { says([](test::Visit& visit) { visit.say(answer("500 Oops", "43")); }); },
               "Claude: 5h 42% used, server error, data just now", 2},
           Row{[&] {
                 fs::remove(cache);
                 says([](test::Visit& visit) { visit.say(answer("200 OK", "43")); });
                 environment["https_proxy"] = "http://" + proxy.address();
               },
               "Claude: 5h 43% used, updated just now", 2},
           Row{[this] { home.write(preferences, R"({"claudeTurnedOff": true})"); },
               "Claude: usage reading is off", 2},
       }) {
    row.given();
    ChildProcess running = start();
    EXPECT_EQ(running.outputLine(row.line), row.line);
    EXPECT_TRUE(test::eventually([&] { return fs::exists(cache); })) << "it is kept";
    EXPECT_EQ(running.end(), "0");
    EXPECT_EQ(server.connections(), row.connections) << row.line;
  }
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_NE(server.requests()[0].find("Bearer the-token"), std::string::npos);
}

TEST_F(ClaudeEndToEnd, EndsSoonWhateverHangs) {
  preload();
  const auto gone = std::make_shared<std::counting_semaphore<>>(0);
  says([gone](test::Visit& visit) {
    visit.hold();
    gone->release();
  });
  std::size_t asked = 0;
  for (const int signal : {SIGTERM, SIGKILL}) {
    ChildProcess asking = start();
    ++asked;
    ASSERT_TRUE(test::eventually([&] { return server.requests().size() == asked; }));
    asking.tell(signal);
    // In order, and sooner than the request ends by itself.
    EXPECT_EQ(asking.finish(10).second, signal == SIGTERM ? 0 : -SIGKILL);
    EXPECT_TRUE(gone->try_acquire_for(std::chrono::seconds(10))) << "the helper outlives us";
  }
  environment["CLAUDE_CONFIG_DIR"] = home.path() + "/hangs";
  ChildProcess reading = start();
  ASSERT_TRUE(reading.errorLine("hangs"));
  EXPECT_EQ(reading.end(), "0") << "what cannot end in order";
}

// Searched is all that a secret could stay in: the program's memory while the server keeps it
// waiting and after the answer, what the kernel tells of it and its helper, what it says and
// writes.
TEST_F(ClaudeEndToEnd, KeepsTheLoginFromEverybodyElse) {
  (void)::prctl(PR_CAPBSET_DROP, CAP_SYS_PTRACE);  // else root may look into everything
  const std::string login = test::Canary::writeLogin(home, "claude/.credentials.json");
  std::promise<std::size_t> asked;
  std::promise<void> seen;
  says([&](test::Visit& visit) {
    asked.set_value(test::Canary::copiesIn(visit.request));
    seen.get_future().wait();
    visit.say(answer("200 OK", "42"));
  });
  ChildProcess running = start();
  const auto contentOf = [](const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  auto request = asked.get_future();
  if (request.wait_for(std::chrono::seconds(20)) == std::future_status::ready) {
    EXPECT_EQ(request.get(), 1U) << "the token did not arrive";
    EXPECT_EQ(test::copiesOfCanary(running.id()).inMemory, 0U) << "it is in the helper's hands";
    const std::string own = "/proc/" + std::to_string(running.id());
    std::vector<std::string> processes{own};
    for (const auto& thread : fs::directory_iterator(own + "/task")) {
      std::istringstream children(contentOf(thread.path() / "children"));
      for (std::string child; children >> child;) {
        // Beside the one that looks for a bus.
        if (contentOf("/proc/" + child + "/cmdline").starts_with(executable)) {
          processes.push_back("/proc/" + child);
        }
      }
    }
    EXPECT_EQ(processes.size(), 2U);
    EXPECT_THAT(contentOf(own + "/limits"), testing::ContainsRegex("Max core file size +0 +0 "));
    EXPECT_THAT(contentOf(own + "/status"), testing::HasSubstr("SigIgn:\t0000000001001000"))
        << "SIGPIPE and SIGXFSZ, and no SIGCHLD";
    for (const std::string& process : processes) {
      EXPECT_EQ(test::Canary::copiesIn(contentOf(process + "/cmdline")), 0U);
      EXPECT_EQ(test::Canary::copiesIn(contentOf(process + "/environ")), 0U);
      // No debugger of the user's may look into the helper, nor a handler of dumps.
      test::asOrdinaryUser(
          [&] { EXPECT_EQ(std::ifstream(process + "/mem").is_open(), process == own); },
          1U << CAP_SYS_PTRACE);
    }
  }
  seen.set_value();
  EXPECT_TRUE(running.outputLine("Claude: 5h 42% used, updated just now"));
  EXPECT_EQ(test::copiesOfCanary(running.id()).inMemory, 0U);
  running.tell(SIGTERM);
  std::string told = running.finish().first;
  while (const auto line = running.errorLine("")) {
    told += *line;
  }
  EXPECT_EQ(test::Canary::copiesIn(told), 0U);
  for (const auto& entry : fs::recursive_directory_iterator(home.path())) {
    if (entry.is_regular_file()) {
      EXPECT_EQ(test::Canary::copiesIn(contentOf(entry)), entry.path() == login ? 2U : 0U) << entry;
    }
  }
}

}  // namespace
}  // namespace marigold
