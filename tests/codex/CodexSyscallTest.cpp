// Counts what a read of the Codex tool's files asks of the system.

#include <gmock/gmock.h>

#include "support/CodexHome.h"
#include "support/CountedCalls.h"

namespace marigold {
namespace {

using test::at, test::interfere, test::made, test::recordLine, testing::ElementsAre;

TEST(CodexSyscalls, AreFew) {
  const test::CodexHome home;
  for (int i = 0; i < 100; ++i) {
    home.write("2027/d" + std::to_string(i % 5) + "/rollout-" + std::to_string(i) + ".jsonl",
               recordLine(i, i), i);
  }
  CodexProvider provider = home.provider();
  const auto callsOfFetch = [&] {
    made = {};
    EXPECT_EQ(provider.fetch(at(1000)).headlinePercent(), 99);
    return std::vector{made["openat"], made["fstatat"], made["open"], made["pread"], made["bytes"]};
  };
  const std::size_t line = recordLine(99, 99).size();
  EXPECT_THAT(callsOfFetch(), ElementsAre(9, 100, 1, 1, line));
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 100, 0, 0, 0)) << "nothing changed";
  home.write("rollout-long.jsonl", std::string(3UL << 20, 'x'), 100);
  EXPECT_THAT(callsOfFetch(), ElementsAre(10, 101, 2, 3, codexTailWindow + line));
  for (int i = 0; i < 50; ++i) {
    home.write("rollout-none-" + std::to_string(i) + ".jsonl", "{}\n", 101);
  }
  const auto none = callsOfFetch();
  EXPECT_THAT(none, ElementsAre(46, 151, 40, 40, 40 * 3)) << "at most 40 files";
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 151, 0, 0, 0)) << "which hold nothing";
  made = {};
  (void)provider.rescan(at(1000));
  EXPECT_EQ(made["open"], 40) << "a rescan trusts nothing";
}

TEST(CodexSyscalls, TheTreeMayChangeWhileItIsWalked) {
  const test::CodexHome home;
  home.write("rollout-gone.jsonl", recordLine(1, 1), 1);
  home.write("rollout-linked.jsonl", recordLine(2, 2), 2);
  home.write("linked/rollout-b.jsonl", recordLine(3, 3), 3);
  home.write("rollout-kept.jsonl", recordLine(5, 0), 0);
  interfere = [&](const std::string& name) {
    const std::string path = home.sessions + "/" + name;
    const std::string elsewhere = home.home.path() + "/" + name;
    if (name == "rollout-linked.jsonl" || name == "linked") {
      std::filesystem::rename(path, elsewhere);
      std::filesystem::create_symlink(elsewhere, path);
    } else if (name != "rollout-kept.jsonl") {
      std::filesystem::remove(path);
    }
  };
  EXPECT_THAT(home.recentRolloutFiles(), ElementsAre("rollout-kept.jsonl"));
  home.write("d/rollout-d.jsonl", recordLine(6, 6), 6);
  interfere = [&](const std::string& name) {
    if (name == "." && !std::filesystem::is_symlink(home.sessions + "/d")) {  // after the walk
      std::filesystem::rename(home.sessions + "/d", home.home.path() + "/d");
      std::filesystem::create_symlink(home.home.path() + "/d", home.sessions + "/d");
    }
  };
  EXPECT_EQ(home.provider().fetch(at(9)).headlinePercent(), 5);
  interfere = [](auto&) {};
}

}  // namespace
}  // namespace marigold
