// Counts what a read of the Codex tool's files asks of the system.

#include <gmock/gmock.h>

#include "support/CodexHome.h"
#include "support/CountedCalls.h"

namespace marigold {
namespace {

using test::at, test::interfere, test::made, test::recordLine, testing::ElementsAre, testing::Field;

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
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 100, 1, 1, line));
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 100, 0, 0, 0)) << "nothing changed";
  home.write("rollout-long.jsonl", std::string(3UL << 20, 'x'), 100);
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 101, 2, 3, codexTailWindow + line));
  for (int i = 0; i < 50; ++i) {
    home.write("rollout-none-" + std::to_string(i) + ".jsonl", "{}\n", 101);
  }
  EXPECT_THAT(callsOfFetch(), ElementsAre(6, 151, 40, 40, 40 * 3)) << "at most 40 files";
}

TEST(CodexSyscalls, TheTreeMayChangeWhileItIsWalked) {
  const test::CodexHome home;
  home.write("rollout-gone.jsonl", recordLine(1, 1), 1);
  home.write("rollout-linked.jsonl", recordLine(2, 2), 2);
  home.write("linked/rollout-b.jsonl", recordLine(3, 3), 3);
  const std::string kept = home.write("rollout-kept.jsonl", recordLine(5, 0), 0);
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
  EXPECT_THAT(home.provider().recentRolloutFiles(9), ElementsAre(Field(&RolloutFile::path, kept)));
  interfere = [](auto&) {};
}

}  // namespace
}  // namespace marigold
