// The built program's menu as a tray host shows it: what its commands do to the mark, the stored
// choices and the requests.

#include <algorithm>
#include <filesystem>
#include <string>

#include <QtDBus/QDBusVariant>
#include <gtest/gtest.h>

#include "base/BoundedFile.h"
#include "end-to-end/ClaudeFixture.h"
#include "support/PrivateBus.h"
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

}  // namespace
}  // namespace marigold
