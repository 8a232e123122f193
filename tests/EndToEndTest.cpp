#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include <QtCore/QCoreApplication>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <gtest/gtest.h>

#include "Time.h"
#include "support/ChildProcess.h"
#include "support/RolloutLines.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

using test::append;
using test::ChildProcess;
using test::tokenCount;
namespace fs = std::filesystem;

// From a change on disk to the printed line: the event latency, the pause between reads, and room
// for a busy machine.
constexpr double soon = 2.5;
// For what depends on starting or ending a process under a sanitizer.
constexpr double patience = 20;

std::function<bool(const std::string&)> has(const std::string& text) {
  return [text](const std::string& line) { return line.find(text) != std::string::npos; };
}

class EndToEnd : public testing::Test {
 protected:
  test::TemporaryDirectory home;
  std::map<std::string, std::string> environment{
      {"HOME", home.path()},
      {"CODEX_HOME", home.path() + "/codex"},
      {"LC_ALL", "C"},
      {"TZ", "UTC"},
      {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home.path() + "/no-bus"},
      {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + home.path() + "/no-bus"}};
  std::string today = home.path() + "/codex/sessions/2026/11/22";

  [[nodiscard]] ChildProcess start(std::vector<std::string> arguments = {}) const {
    arguments.insert(arguments.begin(), MARIGOLD_PROGRAM);
    return {arguments, environment};
  }
  static void endCleanly(ChildProcess& program, int signal) {
    program.tell(signal);
    EXPECT_EQ(program.finish(patience).second, 0);
  }
};

TEST_F(EndToEnd, FollowsCodexAcrossItsLifeAndItsOwn) {
  append(today + "/rollout-a.jsonl", tokenCount(37, 12));
  {
    ChildProcess program = start();
    EXPECT_TRUE(program.outputLine(has("Codex: 5h 37% used, updated just now"), patience));
    EXPECT_EQ(program.outputLine(has("mark:"), soon), "mark: 37%");

    append(today + "/rollout-a.jsonl", tokenCount(38.5, 12));
    EXPECT_TRUE(program.outputLine(has("5h 39% used, updated just now"), soon));

    append(home.path() + "/codex/sessions/2026/11/23/rollout-b.jsonl", tokenCount(45, 13));
    EXPECT_TRUE(program.outputLine(has("5h 45% used, updated just now"), soon));

    fs::rename(home.path() + "/codex/sessions", home.path() + "/away");
    EXPECT_TRUE(program.outputLine(has("5h 45% used, data just now"), soon))
        << "Codex is not running: an older reading";
    fs::rename(home.path() + "/away", home.path() + "/codex/sessions");
    EXPECT_TRUE(program.outputLine(has("5h 45% used, updated just now"), soon));
    append(home.path() + "/codex/sessions/2026/11/23/rollout-b.jsonl", tokenCount(46, 13));
    EXPECT_TRUE(program.outputLine(has("5h 46% used, updated just now"), soon))
        << "watched again after it came back";
    endCleanly(program, SIGTERM);
  }
  ChildProcess again = start();
  for (const char* const line :
       {"Codex: 5h 46% used, data just now", "Codex: Weekly 13% used, data just now",
        "Codex: 5h 46% used, updated just now", "Codex: Weekly 13% used, updated just now"}) {
    EXPECT_EQ(again.outputLine(has("Codex:"), patience), line);
  }
  endCleanly(again, SIGINT);
}

TEST_F(EndToEnd, SaysThatCodexIsNotThereAndNoticesWhenItComes) {
  ChildProcess program = start();
  EXPECT_EQ(program.outputLine(has("Codex"), patience), "Codex: Codex not detected");
  endCleanly(program, SIGTERM);
  EXPECT_FALSE(fs::exists(home.path() + "/codex")) << "nothing is ever made there";
}

TEST_F(EndToEnd, OneShotModesPrintAndExit) {
  append(today + "/rollout-a.jsonl", tokenCount(37, 12));
  struct Row {
    std::vector<std::string> arguments;
    std::string prints;
    int status;
  };
  for (const Row& row :
       {Row{{"--selftest"}, "SELFTEST PASS\n", 0}, Row{{"--dump-codex"}, "37", 0},
        Row{{"--help"}, "usage:", 0}, Row{{"--version"}, "Marigold", 0},
        Row{{"--version", "--selftest"}, "SELFTEST PASS\n", 0}, Row{{"--shot", "x.png"}, "", 1}}) {
    ChildProcess program = start(row.arguments);
    const auto [printed, status] = program.finish(patience);
    EXPECT_NE(printed.find(row.prints), std::string::npos) << row.arguments.front();
    EXPECT_EQ(status, row.status) << row.arguments.front();
  }
  const std::string picture = home.path() + "/mark.png";
  EXPECT_EQ(start({"--shot-menubar", picture}).finish(patience).second, 0);
  EXPECT_GT(fs::file_size(picture), 50'000U);
  EXPECT_EQ(start({"--shot-menubar", "/nowhere/mark.png"}).finish(patience).second, 1);
  EXPECT_FALSE(fs::exists(home.path() + "/.local")) << "a one-shot mode leaves nothing behind";
}

TEST_F(EndToEnd, LivesWithoutAPlaceToWriteAndWithABrokenSettingsFile) {
  append(today + "/rollout-a.jsonl", tokenCount(37, 12));
  append(home.path() + "/.local/share", "a file where a directory should be");
  const std::string settings = home.path() + "/.config/app.marigold.Marigold/";
  append(settings + "preferences.json", "{broken");
  ChildProcess program = start();
  EXPECT_TRUE(program.outputLine(has("5h 37% used, updated just now"), patience));
  EXPECT_TRUE(program.errorLine(has("preferences.json"), soon));
  endCleanly(program, SIGTERM);
  EXPECT_TRUE(fs::exists(settings + "preferences.json.corrupt"));
}

TEST_F(EndToEnd, RefreshesWhenTheMachineWakes) {
  ChildProcess bus({MARIGOLD_DBUS_DAEMON, "--session", "--nofork", "--print-address"},
                   {{"HOME", home.path()}});
  const auto address = bus.outputLine(has("unix:"), patience);
  ASSERT_TRUE(address);
  environment["DBUS_SYSTEM_BUS_ADDRESS"] = *address;
  int argc = 0;
  const QCoreApplication application(argc, nullptr);
  QDBusConnection login = QDBusConnection::connectToBus(QString::fromStdString(*address), "login");
  ASSERT_TRUE(login.registerService("org.freedesktop.login1"));

  ChildProcess program = start();
  ASSERT_TRUE(program.outputLine(has("not detected"), patience));
  append(today + "/rollout-a.jsonl", tokenCount(37, 12));  // not watched: it was not there before
  for (const bool goingToSleep : {true, false}) {
    QDBusMessage sleep = QDBusMessage::createSignal(
        "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "PrepareForSleep");
    sleep << goingToSleep;
    login.send(sleep);
  }
  EXPECT_TRUE(program.errorLine(has("woke from sleep, refreshing"), soon));
  EXPECT_TRUE(program.outputLine(has("5h 37% used"), soon));
  endCleanly(program, SIGTERM);
  QDBusConnection::disconnectFromBus("login");
}

}  // namespace
}  // namespace marigold
