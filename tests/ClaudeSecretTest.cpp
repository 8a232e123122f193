#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ClaudeProvider.h"
#include "LinuxEventLoop.h"
#include "LinuxLogin.h"
#include "LinuxTransport.h"
#include "OwnedDescriptor.h"
#include "StandardErrorLog.h"
#include "Worker.h"
#include "support/Canary.h"
#include "support/TLSServer.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Anthropic, as a process of its own, for it gets to know the token. To the first request it
// answers, the second it leaves waiting. Puts what the test's helper needs to find it in `place`.
class ServerProcess {
 public:
  explicit ServerProcess(const test::TemporaryDirectory& place)
      : ends_(connected()), process_(::fork()) {
    ends_.at(process_ == 0 ? 0 : 1).close();
    if (process_ == 0) {
      serve(place);
      ::_exit(0);
    }
    (void)hear();
  }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ServerProcess(ServerProcess&&) = delete;
  ServerProcess& operator=(ServerProcess&&) = delete;
  ~ServerProcess() {
    ends_[0].close();
    ::waitpid(process_, nullptr, 0);
  }

  [[nodiscard]] pid_t process() const { return process_; }
  // Waits for its next word: 'r' once it is ready, then of each request whether the token was
  // right.
  [[nodiscard]] char hear() const {
    char word = 0;
    return ::read(ends_[0].get(), &word, 1) == 1 ? word : '-';
  }

 private:
  static std::array<OwnedDescriptor, 2> connected() {
    std::array<int, 2> ends{};
    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data());
    return {OwnedDescriptor(ends[0]), OwnedDescriptor(ends[1])};
  }
  void serve(const test::TemporaryDirectory& place) const {
    ::alarm(60);
    const test::Authority authority;
    place.write("authority.pem", authority.text());
    int requests = 0;
    const test::TLSServer server(authority.issue("api.anthropic.com"), [&](test::Visit& visit) {
      const bool isRight = test::Canary::copiesIn(visit.request) == 1;
      tell(isRight ? 'y' : 'n');
      if (++requests == 2) {
        visit.hold();
      }
      visit.say("HTTP/1.1 200 OK\r\n\r\n" + std::string(R"({"five_hour":{"utilization":7}})"));
    });
    place.write("connect-to", "api.anthropic.com:443:" + server.address());
    tell('r');
    char word = 0;
    while (::read(ends_[1].get(), &word, 1) > 0) {
    }
  }
  void tell(char word) const {
    [[maybe_unused]] const ssize_t ignored = ::write(ends_[1].get(), &word, 1);
  }

  std::array<OwnedDescriptor, 2> ends_;
  pid_t process_;
};

// The processes of which this is the parent, but `except`.
std::vector<fs::path> children(pid_t except) {
  std::vector<fs::path> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string status = contentOf(entry.path() / "status");
    if (status.find("\nPPid:\t" + std::to_string(::getpid()) + "\n") != std::string::npos &&
        entry.path().filename() != std::to_string(except)) {
      found.push_back(entry.path());
    }
  }
  return found;
}

TEST(ClaudeSecret, ReachesAnthropicAndNobodyElse) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  rlimit dumps{};
  ::getrlimit(RLIMIT_CORE, &dumps);
  dumps.rlim_cur = std::min<rlim_t>(dumps.rlim_max, 1);  // not what the helper is to have
  ::setrlimit(RLIMIT_CORE, &dumps);
  const test::TemporaryDirectory home;
  const test::TemporaryDirectory place;
  const ServerProcess anthropic(place);
  const std::string program = place.path() + "/marigold-request";
  fs::create_symlink(MARIGOLD_TEST_REQUEST, program);
  const Surroundings surroundings{
      .home = home.path(), .applicationSupport = home.path() + "/data", .bundleIdentifier = "app"};
  const std::string login = test::Canary::writeLogin(home, ".claude/.credentials.json");

  std::vector<Health> told;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  {
    StandardErrorLog log;
    LinuxEventLoop loop;
    Worker worker;
    LinuxTransport transport(program, httpsProxy(surroundings), log);
    ClaudeProvider provider(loop, worker, transport,
                            LinuxLogin(claudeCredentialsFile(surroundings), ::geteuid()),
                            DiskCache(surroundings));
    const auto ask = [&] {
      provider.poll(0, loop.date(), [&](const ProviderSnapshot& snapshot) {
        told.push_back(snapshot.health);
        // Behind the cache's write.
        worker.post([&] { loop.post([&] { loop.quit(); }); });
      });
    };
    ask();
    loop.run();
    EXPECT_EQ(anthropic.hear(), 'y') << "the token did not arrive";
    EXPECT_EQ(test::copiesOfCanary().inMemory, 0U);

    ask();
    EXPECT_EQ(anthropic.hear(), 'y');
    const test::Copies copies = test::copiesOfCanary();
    EXPECT_EQ(copies.inMemory, 1U);
    EXPECT_EQ(copies.inCoreDumps, 0U);
    const auto helpers = children(anthropic.process());
    EXPECT_EQ(helpers.size(), 1U);
    const fs::path helper = helpers.empty() ? "" : helpers.front();
    EXPECT_THAT(contentOf(helper / "cmdline"), testing::StartsWith(program));
    EXPECT_THAT(contentOf(helper / "limits"), testing::ContainsRegex("Max core file size +0 +0 "));
    for (const fs::path& process : {helper, fs::path("/proc/self")}) {
      EXPECT_EQ(test::Canary::copiesIn(contentOf(process / "cmdline")), 0U);
      EXPECT_EQ(test::Canary::copiesIn(contentOf(process / "environ")), 0U);
    }
    transport.stop();
    loop.run();
    EXPECT_EQ(test::copiesOfCanary().inMemory, 0U);
  }
  EXPECT_THAT(told, testing::ElementsAre(Health::ok(), Health::stale("fetch failed")));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

  int files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(home.path())) {
    if (entry.is_regular_file()) {
      EXPECT_EQ(test::Canary::copiesIn(contentOf(entry)), entry.path() == login ? 1U : 0U) << entry;
      ++files;
    }
  }
  EXPECT_EQ(files, 2) << "the login and the cache";
}

}  // namespace
}  // namespace marigold
