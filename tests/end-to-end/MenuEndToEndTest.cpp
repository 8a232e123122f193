// The built program's menu as a tray host shows it: what its commands do to the mark, the stored
// choices and the requests.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusVariant>
#include <gtest/gtest.h>

#include "end-to-end/ProgramFixture.h"
#include "support/TLSServer.h"
#include "support/TrayHost.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using test::eventually;

class MenuEndToEnd : public test::ProgramFixture {
 protected:
  MenuEndToEnd() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    bus_.outputLine("unix:");
    host.emplace(QString::fromStdString(busAddress_), "menu-host");
    environment["DBUS_SESSION_BUS_ADDRESS"] = busAddress_;
    environment["QT_QPA_PLATFORM"] = "offscreen";
    environment["CLAUDE_CONFIG_DIR"] = home.path() + "/claude";
    fs::permissions(
        home.write("claude/.credentials.json",
                   R"({"claudeAiOauth":{"accessToken":"token","subscriptionType":"max"}})"),
        fs::perms{0600});
    home.write("bin/authority.pem", authority_.text());
    home.write("bin/connect-to", "api.anthropic.com:443:" + server.address());
    fs::copy_file(MARIGOLD_TEST_REQUEST, home.path() + "/bin/marigold-request");
    executable = home.path() + "/bin/marigold";
    fs::copy_file(MARIGOLD_PROGRAM, executable);
    codexSays(37, 12);
  }

  // The entry with this label, the last of several, at or below `layout`; null without one.
  static const DBusMenuLayout* entry(const DBusMenuLayout& layout, const QString& label) {
    const DBusMenuLayout* found = layout.properties["label"] == label ? &layout : nullptr;
    for (const DBusMenuLayout& child : layout.children) {
      const DBusMenuLayout* const below = entry(child, label);
      found = below != nullptr ? below : found;
    }
    return found;
  }
  DBusMenuLayout menu() {
    return qdbus_cast<DBusMenuLayout>(host->askMenu("GetLayout", {0, -1, QStringList()}).value(1));
  }
  void choose(const char* label) {
    const DBusMenuLayout all = menu();
    const DBusMenuLayout* const chosen = entry(all, label);
    ASSERT_NE(chosen, nullptr) << label;
    host->askMenu("Event", {chosen->id, "clicked", QVariant::fromValue(QDBusVariant(0)), 0U});
  }
  QString label() { return host->itemProperties()["XAyatanaLabel"].toString(); }
  bool labelBecomes(const char* text) {
    return eventually([&] { return label() == text; });
  }
  [[nodiscard]] bool stored(
      const std::string& text,
      const std::string& name = "app.marigold.Marigold/preferences.json") const {
    std::ifstream file(home.path() + "/.config/" + name);
    return std::string(std::istreambuf_iterator<char>(file), {}).find(text) != std::string::npos;
  }

 private:
  std::string busAddress_ = "unix:path=" + home.path() + "/bus";
  test::ChildProcess bus_{{MARIGOLD_DBUS_DAEMON, "--session", "--nofork", "--print-address",
                           "--address=" + busAddress_}};
  test::Authority authority_;

 protected:
  test::TLSServer server{authority_.issue("api.anthropic.com"), [](test::Visit& visit) {
                           visit.say(
                               "HTTP/1.1 200 OK\r\nContent-Length: 36\r\n\r\n"
                               R"({"five_hour":{"utilization":42.25}} )");
                         }};
  std::optional<test::TrayHost> host;
};

TEST_F(MenuEndToEnd, EachCommandDoesWhatItSays) {
  const std::string autostart = "autostart/app.marigold.Marigold.desktop";
  home.write(".config/" + autostart, "[Desktop Entry]\nExec=/where/it/was\n");
  test::ChildProcess program = start();
  ASSERT_TRUE(eventually([this] { return !host->item.isEmpty(); }));
  ASSERT_TRUE(labelBecomes("42% | 37%")) << label().toStdString();
  EXPECT_TRUE(stored("Exec=\"" + executable + "\"", autostart))
      << "as long as it launches at login";
  struct Row {
    const char* chosen = "";
    const char* label = "";
    const char* stored = "";
    bool redraws = false;
  };
  for (const Row& row :
       {Row{"Pills", "42% | 37%", R"("menuBarStyle":"pills")", true},
        Row{"Colors by Window", "42% | 37%", R"("ringColors":"byWindow")", true},
        Row{"Window Labels", "5h 42% | 5h 37%", R"("menuBarLabels":true)"},
        Row{"    Weekly", "5h 42% | 5h 37% wk 3d23h", R"("resetWindows.codex":"weekly")"},
        Row{"Claude", "5h 37% wk 3d23h", R"("menubar.claude":false)", true},
        Row{"Turn Off Claude Usage", "5h 37% wk 3d23h", R"("claudeTurnedOff":true)"}}) {
    host->heard.clear();
    choose(row.chosen);
    EXPECT_TRUE(labelBecomes(row.label)) << row.chosen << ": " << label().toStdString();
    EXPECT_TRUE(eventually([&] { return stored(row.stored); })) << row.chosen;
    EXPECT_TRUE(!row.redraws || eventually([this] {
      return std::ranges::count(host->heard, std::string("NewIcon")) > 0;
    })) << row.chosen;
  }
  choose("Refresh Now");
  choose("Claude");
  choose("Turn On Claude Usage");
  EXPECT_TRUE(labelBecomes("5h 42% | 5h 37% wk 3d23h")) << label().toStdString();
  EXPECT_EQ(server.connections(), 2) << "none while it was off";

  const std::string cache = home.path() + "/.local/share/app.marigold.Marigold/cache/codex.json";
  ASSERT_TRUE(eventually([&] { return fs::exists(cache); }));
  fs::remove_all(home.path() + "/codex");
  const DBusMenuLayout all = menu();
  EXPECT_TRUE(entry(all, "Clear Stored Usage Data")
                  ->properties["accessible-desc"]
                  .toString()
                  .startsWith("Forget the usage numbers cached on this computer "));
  choose("Clear Stored Usage Data");
  EXPECT_TRUE(labelBecomes("")) << label().toStdString();
  EXPECT_FALSE(fs::exists(cache));

  choose("Quit Marigold");
  EXPECT_EQ(program.finish().second, 0);
}

}  // namespace
}  // namespace marigold
