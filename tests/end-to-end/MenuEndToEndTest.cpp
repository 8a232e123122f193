// The built program's menu as a tray host shows it: what its commands do to the mark, the stored
// choices and the requests.

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <QtDBus/QDBusVariant>
#include <gmock/gmock.h>

#include "base/BoundedFile.h"
#include "end-to-end/ClaudeFixture.h"
#include "support/PrivateBus.h"
#include "support/Trace.h"
#include "support/TrayHost.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using test::eventually;

class MenuEndToEnd : public test::ClaudeFixture {
 protected:
  MenuEndToEnd() {
    environment["DBUS_SESSION_BUS_ADDRESS"] = bus_.address;
    environment["QT_QPA_PLATFORM"] = "offscreen";
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
  void choose(const char* label) {
    const DBusMenuLayout all = host.layout();
    const DBusMenuLayout* const chosen = entry(all, label);
    ASSERT_NE(chosen, nullptr) << label;
    host.askMenu("Event", {chosen->id, "clicked", QVariant::fromValue(QDBusVariant(0)), 0U});
  }
  QString label() { return host.itemProperties()["XAyatanaLabel"].toString(); }
  bool labelBecomes(const char* text) {
    return eventually([&] { return label() == text; });
  }
  [[nodiscard]] bool stored(const std::string& text, const std::string& file) const {
    return readWholeFile(home.path() + "/" + file, 10'000).value_or("").contains(text);
  }

 private:
  test::PrivateBus bus_{home};

 protected:
  test::TrayHost host{QString::fromStdString(bus_.address), "menu-host"};
};

TEST_F(MenuEndToEnd, EachCommandDoesWhatItSays) {
  const std::string autostart = ".config/autostart/app.marigold.Marigold.desktop";
  home.write(autostart, "[Desktop Entry]\nExec=/where/it/was\n");
  test::ChildProcess program = start();
  ASSERT_TRUE(eventually([this] { return !host.item.isEmpty(); }));
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
    host.heard.clear();
    choose(row.chosen);
    EXPECT_TRUE(labelBecomes(row.label)) << row.chosen << ": " << label().toStdString();
    EXPECT_TRUE(eventually([&] { return stored(row.stored, preferences); })) << row.chosen;
    EXPECT_TRUE(!row.redraws || eventually([this] {
      return std::ranges::count(host.heard, std::string("NewIcon")) > 0;
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
  const DBusMenuLayout all = host.layout();
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

// Every path is one that the README names, there by its last words here.
TEST_F(MenuEndToEnd, TouchesNothingButWhatTheReadmeNames) {
  const std::string readme = readWholeFile(MARIGOLD_README, 1'000'000).value_or("");
  std::vector<std::string> places;
  for (const auto& [place, name] : std::map<std::string, std::string>{
           {home.path() + "/.config/app.marigold.Marigold", "~/" + preferences},
           {home.path() + "/.config/autostart",
            "~/.config/autostart/app.marigold.Marigold.desktop"},
           {home.path() + "/.local/share/app.marigold.Marigold/cache",
            "~/.local/share/app.marigold.Marigold/cache"},
           {home.path() + "/.cache/app.marigold.Marigold", "~/.cache/app.marigold.Marigold"},
           {home.path() + "/.grok/logs", "~/.grok/logs"},
           {home.path() + "/codex/sessions", "~/.codex/sessions"},
           {home.path() + "/claude/.credentials.json", "~/.claude/.credentials.json"},
           {home.path() + "/bin", "marigold-request"},
           {home.path() + "/.fonts", "~/.fonts"},
           {home.path() + "/.fonts.conf", "~/.fonts"},
           {home.path() + "/.fonts.conf.d", "~/.fonts"},
           {home.path() + "/.fontconfig", "~/.fonts"},
           {home.path() + "/.local/share/fonts", "~/.local/share/fonts"},
           {home.path() + "/.config/fontconfig", "~/.config/fontconfig"},
           {home.path() + "/.cache/fontconfig", "~/.cache/fontconfig"},
           {home.path() + "/.config/QtProject", "~/.config/QtProject"},
           {home.path() + "/bus", "$XDG_RUNTIME_DIR"},
           {home.path() + "/app.marigold.Marigold", "$XDG_RUNTIME_DIR"},
           {home.path() + "/no-bus", "$XDG_RUNTIME_DIR"},
           {home.path() + "/flatpak-info", "$XDG_RUNTIME_DIR"},
           {"/usr", "/usr"},
           {"/lib", "/lib"},
           {"/lib64", "/lib"},
           {"/etc/ld.so.cache", "/etc/ld.so.cache"},
           {"/etc/ld.so.preload", "/etc/ld.so.cache"},
           {"/etc/fonts", "/etc/fonts"},
           {"/etc/localtime", "/etc/localtime"},
           {"/etc/ssl", "/etc/ssl"},
           {"/etc/gnutls", "/etc/gnutls"},
           {"/etc/xdg/QtProject", "/etc/xdg/QtProject"},
           {"/var/cache/fontconfig", "/var/cache/fontconfig"},
           {"/proc", "/proc"},
           {"/sys/devices/system/cpu", "/sys/devices/system/cpu"},
           {"/dev/null", "/dev/null"},
       }) {
    EXPECT_TRUE(readme.contains(name)) << name;
    places.push_back(place);
  }
  const std::string file = home.path() + "/trace";
  const std::string port = server.address().substr(server.address().find(':') + 1);
  const auto traced = [&] {
    return test::unexpected(readWholeFile(file, 100'000'000).value_or("no trace"), places, port);
  };
  std::ranges::copy(test::tracing(file), std::back_inserter(wrapper));
  environment["ASAN_OPTIONS"] = "detect_leaks=0";  // which is no use while traced

  std::vector<std::string> reads = test::tracing(file);
  reads.insert(reads.end(), {"/bin/ls", "/etc/passwd"});
  EXPECT_EQ(run(reads).finish().second, 0);
  EXPECT_THAT(traced(), testing::Contains("/etc/passwd")) << "it is seen";
  EXPECT_THAT(test::unexpected("1 execve(\"/proc/self/fd/3\", []\n1 socket(AF_INET, 0) = 3\n"
                               "1 connect(3, {sin_port=htons(1), 127.0.0.1\n2 socket(AF_INET6\n"
                               "1 connect(3, {sin_port=htons(2), 127.0.0.1\n1 listen(5, 1) = 0\n",
                               {}, "1"),
              testing::SizeIs(4))
      << "another place, process, port and a listener";

  test::ChildProcess program = start();
  ASSERT_TRUE(eventually([this] { return !host.item.isEmpty(); }));
  ASSERT_TRUE(labelBecomes("42% | 37%")) << label().toStdString();
  codexSays(38, 12);
  EXPECT_TRUE(labelBecomes("42% | 38%")) << label().toStdString();
  host.askMenu("AboutToShow", {0});
  choose("Refresh Now");
  choose("Pills");
  host.askItem("ContextMenu", {0, 0});
  host.askItem("Activate", {0, 0});
  EXPECT_TRUE(eventually([&] { return stored(R"("menuBarStyle":"pills")", preferences); }));
  choose("Turn Off Claude Usage");
  choose("Clear Stored Usage Data");
  choose("Quit Marigold");
  // How it ends is not looked at here: whoever traces it may be held up by a child of it.
  (void)program.finish(5);
  EXPECT_THAT(traced(), testing::IsEmpty());
}

}  // namespace
}  // namespace marigold
