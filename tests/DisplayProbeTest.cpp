#include <array>
#include <filesystem>
#include <thread>

#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/un.h>

#include "DisplayProbe.h"
#include "OwnedDescriptor.h"
#include "support/DesktopServices.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

class KeptLog final : public Log {
 public:
  void note(std::string_view line) override { lines.emplace_back(line); }
  void error(std::string_view line) override { lines.emplace_back(line); }
  std::vector<std::string> lines;
};

class DisplayProbeTest : public testing::Test {
 protected:
  void expect(const std::optional<std::string>& usable, std::size_t lines) {
    log.lines.clear();
    EXPECT_EQ(usablePlatforms(environment, log, patience), usable);
    EXPECT_EQ(log.lines.size(), lines) << environment.platforms << usable.value_or("");
  }

  test::TemporaryDirectory home;
  KeptLog log;
  Seconds patience{20};
  std::string waylandPlugin = home.write("platforms/libqwayland-generic.so", "");
  std::string xcbPlugin = home.write("platforms/libqxcb.so", "");
  DisplayEnvironment environment{.runtimeDirectory = home.path(),
                                 .pluginDirectories = {home.path() + "/platforms"}};
};

TEST_F(DisplayProbeTest, TakesTheFirstPlatformThatWorks) {
  expect(std::nullopt, 0);
  environment.waylandDisplay = environment.x11Display = "dead";
  for (const auto& [wanted, usable, lines] :
       std::vector<std::tuple<std::string, std::optional<std::string>, std::size_t>>{
           {"", std::nullopt, 2},
           {"xcb", std::nullopt, 1},
           {"offscreen", "offscreen", 0},
           {";xcb:a;wayland-egl;minimal:b;vnc", "minimal:b;vnc", 2}}) {
    environment.platforms = wanted;
    expect(usable, lines);
  }
}

TEST_F(DisplayProbeTest, AsksTheCompositorAndWaitsOnlySoLong) {
  const OwnedDescriptor compositor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{.sun_family = AF_UNIX};
  (home.path() + "/wayland-7").copy(std::begin(address.sun_path), sizeof address.sun_path - 1);
  // NOLINTNEXTLINE(*-reinterpret-cast)
  ASSERT_EQ(::bind(compositor.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(compositor.get(), 8), 0);
  environment.waylandDisplay = "wayland-7";
  environment.x11Display = "not asked";
  std::thread answering([&] {
    for (int i = 0; i < 2; ++i) {
      const OwnedDescriptor client(::accept(compositor.get(), nullptr, nullptr));
      std::array<std::uint32_t, 3> message{};
      EXPECT_EQ(::read(client.get(), message.data(), sizeof message), 12);
      message = {message.back(), 12U << 16U, 1};  // wl_callback.done
      EXPECT_EQ(::write(client.get(), message.data(), sizeof message), 12);
    }
  });
  expect("wayland;xcb", 0);
  std::filesystem::remove(waylandPlugin);
  environment.x11Display = "";
  expect(std::nullopt, 1);
  EXPECT_THAT(log.lines.at(0), testing::HasSubstr("plugin"));
  answering.join();
  patience = Seconds{0.1};
  expect(std::nullopt, 1);
  EXPECT_THAT(log.lines.at(0), testing::HasSubstr("cannot be opened")) << "nobody answers now";
}

TEST_F(DisplayProbeTest, AsksTheXServerWhetherItLetsUsIn) {
  using namespace std::string_literals;
  // One entry for any display: family, address, number, name and cookie, each after its length.
  const std::string authority = home.write("authority",
                                           "\xff\xff\0\0\0\0\0\x12MIT-MAGIC-COOKIE-1\0\x10"
                                           "0123456789abcdef"s);
  const test::DesktopService server({MARIGOLD_XVFB, "-displayfd", "1", "-auth", authority});
  environment.x11Display = ":" + server.name();
  ::qputenv("XAUTHORITY", "/nowhere");
  expect(std::nullopt, 1);
  ::qputenv("XAUTHORITY", authority.c_str());
  expect("xcb", 0);
  std::filesystem::remove(xcbPlugin);
  expect(std::nullopt, 1);

  // A port where nobody answers; those of X servers are counted from 6000.
  const OwnedDescriptor silent(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::listen(silent.get(), 8), 0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  // NOLINTNEXTLINE(*-reinterpret-cast)
  ASSERT_EQ(::getsockname(silent.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
  environment.x11Display = "127.0.0.1:" + std::to_string(ntohs(address.sin_port) - 6000);
  patience = Seconds{0.1};
  expect(std::nullopt, 1);
}

}  // namespace
}  // namespace marigold
