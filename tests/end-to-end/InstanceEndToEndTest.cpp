// Several starts of the built program by one user, and what the others ask of the one that runs.

#include <algorithm>
#include <atomic>
#include <csignal>
#include <deque>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusVirtualObject>
#include <gmock/gmock.h>
#include <unistd.h>

#include "end-to-end/ClaudeFixture.h"
#include "support/PrivateBus.h"

namespace marigold {
namespace {

using test::ChildProcess;
using test::eventually;
namespace fs = std::filesystem;

constexpr int stillRuns = -1000;

class Instance : public test::ProgramFixture {
 protected:
  const std::string place = home.path() + "/app.marigold.Marigold";

  // What a one-shot mode prints and its exit status.
  [[nodiscard]] std::pair<std::string, int> told(const std::vector<std::string>& arguments) const {
    return start(arguments).finish();
  }
};

TEST_F(Instance, OfStartsAtOnceOneRunsWhateverBecameOfTheLast) {
  for (int round = 0; round < 6; ++round) {
    std::deque<ChildProcess> programs;
    for (int i = 0; i < 4; ++i) {
      programs.emplace_back(std::vector<std::string>{executable}, environment);
    }
    std::vector<int> statuses;
    EXPECT_TRUE(eventually([&] {
      statuses.clear();
      std::ranges::transform(programs, std::back_inserter(statuses),
                             [](ChildProcess& program) { return program.finish(0).second; });
      return std::ranges::count(statuses, 0) == 3;
    })) << testing::PrintToString(statuses);
    const auto one = std::ranges::find(statuses, stillRuns);
    ASSERT_NE(one, statuses.end()) << testing::PrintToString(statuses);
    ChildProcess& running = programs.at(static_cast<std::size_t>(one - statuses.begin()));
    EXPECT_EQ(told({"--status"}).second, 0);
    EXPECT_EQ(running.finish(0).second, stillRuns);
    if (round % 2 == 0) {
      running.tell(SIGKILL);  // which leaves its socket behind
      running.finish();
    } else {
      EXPECT_EQ(told({"--quit"}).second, 0);
      EXPECT_FALSE(fs::exists(place + "/instance")) << "its end was waited for";
      EXPECT_EQ(running.finish().second, 0);
    }
  }
}

TEST_F(Instance, IsFoundWhereverThereIsAPlaceAndStartsWithoutOne) {
  const std::string data = home.path() + "/.local/share/app.marigold.Marigold";
  struct Row {
    std::function<void()> given;
    std::string place;  // none when it is empty
  };
  for (const Row& row : {Row{[] {}, place},
                         Row{[&] { home.write("app.marigold.Marigold/instance.new", ""); }, place},
                         Row{[&] {
                               environment["XDG_RUNTIME_DIR"] =
                                   home.path() + "/" + std::string(120, 'x');
                               fs::create_directory(environment["XDG_RUNTIME_DIR"]);
                             },
                             home.path() + "/" + std::string(120, 'x') + "/app.marigold.Marigold"},
                         Row{[&] { environment["XDG_RUNTIME_DIR"] = "."; }, data},
                         Row{[&] { environment["XDG_RUNTIME_DIR"] = home.path() + "/none"; }, data},
                         Row{[&] { fs::permissions(data, fs::perms{0770}); }, ""},
                         Row{[&] {
                               environment["XDG_RUNTIME_DIR"] = home.path();
                               fs::remove_all(place);
                               home.write("app.marigold.Marigold", "");
                             },
                             ""}}) {
    row.given();
    ChildProcess first = start();
    ASSERT_TRUE(first.outputLine("Codex"));
    EXPECT_EQ(fs::exists(row.place + "/instance"), !row.place.empty());
    ChildProcess second = start();
    if (row.place.empty()) {
      EXPECT_TRUE(second.errorLine("no place where"));
      EXPECT_TRUE(second.outputLine("Codex"));
      EXPECT_EQ(second.end(), "0");
    } else {
      EXPECT_TRUE(second.errorLine("runs already, where there is no display"));
      EXPECT_EQ(second.finish().second, 0);
      EXPECT_EQ(fs::status(row.place).permissions(), fs::perms{0700});
    }
    EXPECT_EQ(told({"--status"}).second, 0);
    EXPECT_EQ(first.end(), "0");
    ChildProcess quitting = start({"--quit"});
    EXPECT_TRUE(quitting.errorLine("does not run"));
    EXPECT_EQ(quitting.finish().second, 0);
  }
}

TEST_F(Instance, AnotherUsersPlaceOrSocketIsNotTouched) {
  if (::geteuid() != 0) {
    return;  // nobody else can be the other user
  }
  const std::vector<std::string> own = wrapper;
  wrapper = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
  environment["HOME"] = home.path() + "/other";
  environment["XDG_RUNTIME_DIR"] = home.path() + "/other";
  fs::create_directory(home.path() + "/other");
  ASSERT_EQ(::chmod(home.path().c_str(), 0711), 0);
  ASSERT_EQ(::chown((home.path() + "/other").c_str(), 65534, 65534), 0);
  ChildProcess first = start();
  ASSERT_TRUE(first.outputLine("Codex"));
  wrapper = own;
  environment["HOME"] = home.path();
  EXPECT_EQ(told({"--quit"}).second, 0);
  EXPECT_EQ(first.finish(0).second, stillRuns) << "it has been another user's to end";
  ChildProcess second = start();
  EXPECT_TRUE(second.outputLine("Codex"));
  EXPECT_TRUE(fs::exists(home.path() + "/.local/share/app.marigold.Marigold/instance"));
  EXPECT_EQ(second.end(), "0");
  EXPECT_EQ(first.end(), "0");
  environment["XDG_RUNTIME_DIR"] = home.path();
  fs::rename(home.path() + "/other/app.marigold.Marigold", place);
  ChildProcess third = start();
  EXPECT_TRUE(third.errorLine("no place where"));
}

TEST_F(Instance, TellsTheStatusAcrossItsLives) {
  codexSays(37, 12);
  environment["GROK_HOME"] = home.path() + "/grok";
  const std::string line =
      "Codex: 5h 37% used, updated just now; Weekly 12% used, updated just now\n";
  EXPECT_EQ(told({"--status"}), std::pair(line, 0));
  EXPECT_EQ(told({"--short"}), std::pair(std::string("Codex 37%\n"), 0));
  EXPECT_FALSE(fs::exists(home.path() + "/.config"));
  EXPECT_FALSE(fs::exists(home.path() + "/.local"));
  EXPECT_FALSE(fs::exists(place));

  ChildProcess follower = start({"--status", "--short", "--follow"});
  ChildProcess lines = start({"--status", "--follow"});
  EXPECT_EQ(follower.outputLine(""), "Codex 37%");
  EXPECT_EQ(lines.outputLine("").value_or("") + "\n", line);
  const ChildProcess first = start();
  EXPECT_TRUE(follower.outputLine("Codex 37%"));
  EXPECT_TRUE(lines.outputLine("Claude: Claude Code not detected"));
  EXPECT_THAT(told({"--status"}).first, testing::HasSubstr("not detected\n" + line));
  EXPECT_EQ(told({"--quit"}).second, 0);
  EXPECT_TRUE(follower.outputLine("Codex 37%")) << "its own reading, again";
  ChildProcess second = start();
  EXPECT_TRUE(lines.outputLine("Claude: Claude Code not detected"));
  codexSays(46, 13);
  EXPECT_TRUE(follower.outputLine("Codex 46%"));
  EXPECT_TRUE(lines.outputLine("Codex: 5h 46% used"));

  second.tell(SIGSTOP);
  EXPECT_THAT(told({"--json"}).first, testing::HasSubstr(R"("text":"Codex 46%")"));
  second.tell(SIGCONT);
  second.tell(SIGKILL);
  second.finish();
  EXPECT_TRUE(follower.outputLine("Codex 46%")) << "its own reading";
  ChildProcess third = start();
  EXPECT_TRUE(follower.outputLine("Codex 46%"));
  codexSays(47, 14);
  EXPECT_TRUE(follower.outputLine("Codex 47%"));

  // The end of the first pipe ends who writes to it, with no change to write.
  EXPECT_EQ(run({"/bin/sh", "-c", "$0 --json --follow | head -n 1 | wc -l", executable}).finish(),
            std::pair(std::string("1\n"), 0));
  EXPECT_EQ(told({"--quit"}).second, 0);
  EXPECT_EQ(third.finish().second, 0);
  EXPECT_EQ(run({"/bin/sh", "-c", "$0 --json --follow | head -n 1 | wc -l", executable}).finish(),
            std::pair(std::string("1\n"), 0));
}

using ClaudeInstance = test::ClaudeFixture;

TEST_F(ClaudeInstance, AsksAnthropicAlone) {
  {
    ChildProcess running = start();
    ASSERT_TRUE(running.outputLine("Claude: 5h 42% used, updated just now"));
    EXPECT_EQ(start({"--short"}).finish().first, "Claude 42%\n");
    EXPECT_TRUE(eventually([&] {
      return fs::exists(home.path() + "/.local/share/app.marigold.Marigold/cache/claude.json");
    }));
    EXPECT_EQ(running.end(), "0");
  }
  says([](test::Visit& visit) { visit.say(answer("200 OK", "43")); });
  home.write(preferences, R"({"visible.codex": false})");
  EXPECT_EQ(start({"--status"}).finish().first, "Claude: 5h 42% used, data just now\n");
  EXPECT_THAT(start({"--json"}).finish().first, testing::Not(testing::HasSubstr("codex")));
  EXPECT_EQ(server.connections(), 1);
}

// Somebody else under the program's name, who answers everything.
class Other final : public QDBusVirtualObject {
 public:
  [[nodiscard]] QString introspect(const QString& /*path*/) const override { return {}; }
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    ++calls;
    return connection.send(message.createReply());
  }
  std::atomic<int> calls = 0;
};

TEST_F(Instance, HasANameOnTheBusThatComesBackWithIt) {
  test::PrivateBus bus(home);
  environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address;
  const QString name = "app.marigold.Marigold";
  const auto call = [&](const char* method) {
    const QDBusMessage reply = bus.connect("caller").call(
        QDBusMessage::createMethodCall(name, "/app/marigold/Marigold", name, method));
    QDBusConnection::disconnectFromBus("caller");
    return reply.type() == QDBusMessage::ReplyMessage
               ? reply.arguments().value(0).toString().toStdString()
               : reply.errorName().toStdString();
  };
  const auto answers = [&] {
    return eventually([&] { return call("Status").starts_with(R"({"version":1)"); });
  };
  // As one that has just crashed may for a moment.
  bus.connect("former").registerService(name);
  ChildProcess first = start();
  ASSERT_TRUE(first.outputLine("Codex"));
  QDBusConnection::disconnectFromBus("former");
  EXPECT_TRUE(answers());
  environment["XDG_RUNTIME_DIR"] = home.path() + "/another";
  fs::create_directory(home.path() + "/another");
  EXPECT_EQ(told({}).second, 0) << "it is found by its name";
  environment["XDG_RUNTIME_DIR"] = home.path();
  bus.stop();
  EXPECT_EQ(told({}).second, 0) << "it is found by its socket";

  // It stays, whoever was faster when the bus came back, and has the name when that one goes.
  bus.restart();
  Other other;
  QDBusConnection rival = bus.connect("former");
  rival.registerVirtualObject("/app/marigold/Marigold", &other);
  rival.registerService(name);
  const auto waiting = [&] {
    const QDBusMessage reply =
        rival.call(QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                  "org.freedesktop.DBus", "ListQueuedOwners")
                   << name);
    return reply.arguments().value(0).toStringList();
  };
  EXPECT_TRUE(eventually([&] { return waiting().size() == 2; }));
  for (int i = 0; i < 3; ++i) {
    rival.call(
        QDBusMessage::createMethodCall(waiting().back(), "/app/marigold/Marigold", name, "Status"));
  }
  QCoreApplication::processEvents();
  EXPECT_EQ(other.calls, 0);
  rival.unregisterService(name);
  QDBusConnection::disconnectFromBus("former");
  EXPECT_TRUE(answers());
  EXPECT_EQ(call("Open"), "");
  EXPECT_EQ(first.finish(0).second, stillRuns);
  EXPECT_EQ(call("Quit"), "");
  EXPECT_EQ(first.finish().second, 0);
}

}  // namespace
}  // namespace marigold
