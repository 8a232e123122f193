#include <glib.h>
#include <gtest/gtest.h>

#include "base/BoundedFile.h"
#include "linux/system/LinuxLoginItem.h"
#include "support/LoginItemContract.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;

class LinuxLoginItemTest : public testing::Test {
 protected:
  [[nodiscard]] LinuxLoginItem item(const std::string& program = "/bin/marigold") const {
    return {{.configuration = home.path(), .bundleIdentifier = "app"}, program};
  }
  // Of the entry; empty when there is none.
  [[nodiscard]] std::string content() const { return readWholeFile(path, 10'000).value_or(""); }
  [[nodiscard]] bool isOn() const { return item().status() == LoginItem::Status::enabled; }
  // Why it failed, less the path.
  [[nodiscard]] std::string told(const std::expected<void, std::string>& outcome) const {
    const std::string text = outcome ? "done" : outcome.error();
    return text.starts_with(path) ? text.substr(path.size()) : text;
  }

  test::TemporaryDirectory home;
  std::string path = home.path() + "/autostart/app.desktop";
};

TEST_F(LinuxLoginItemTest, IsThereFromRegisteringToUnregistering) {
  LinuxLoginItem made = item();
  test::isThereFromRegisteringToUnregistering(made);
}

TEST_F(LinuxLoginItemTest, AnEntryStartsTheProgramWhereverItLies) {
  EXPECT_FALSE(isOn());
  for (const std::string program :
       {"/usr/bin/marigold", "/a b/%f%%/$HOME`id`\"q\"/\\n\\\\s/~;|&<>#*?()'", "/tab\tline\nend",
        "/\xc3\xa4=\xe2\x82\xac"}) {
    ASSERT_EQ(told(item(program).registerProgram()), "done");
    EXPECT_TRUE(isOn());
    // Read as the desktops that build on GLib do.
    const std::unique_ptr<GKeyFile, decltype(&g_key_file_unref)> file(g_key_file_new(),
                                                                      &g_key_file_unref);
    ASSERT_TRUE(g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_NONE, nullptr));
    const std::unique_ptr<gchar, decltype(&g_free)> command(
        g_key_file_get_string(file.get(), "Desktop Entry", "Exec", nullptr), &g_free);
    gint count = 0;
    gchar** words = nullptr;
    ASSERT_TRUE(g_shell_parse_argv(command.get(), &count, &words, nullptr)) << command.get();
    std::string first = *words;
    g_strfreev(words);
    for (std::size_t at = 0; (at = first.find('%', at)) != std::string::npos; ++at) {
      ASSERT_EQ(first.substr(at, 2), "%%");
      first.erase(at, 1);
    }
    EXPECT_EQ(first, program);
    EXPECT_EQ(count, 1);
  }
}

TEST_F(LinuxLoginItemTest, KeepsWhatOthersWrote) {
  const std::string exec = "Exec=\"/bin/marigold\"\n";
  const std::string ours = "[Desktop Entry]\nType=Application\nName=Marigold\n" + exec;
  const auto entry = [](const std::string& keys) { return "[Desktop Entry]\n" + keys; };
  struct Row {
    std::string before;
    bool on;
    std::string registered;
    std::string unregistered;
  };
  const std::vector<Row> rows{
      {"", false, ours, ""},
      {ours, true, ours, ""},
      {entry("Type=Application\nName=Marigold\nExec=/old/marigold\n"), true, ours, ""},
      {"# mine\n[Desktop Entry]\nName[de]=Ringel\nExec=old\nX-GNOME-Autostart-Delay=5\n\n"
       "[Desktop Action a]\nExec=a\nHidden=true\n",
       true,
       "# mine\n\n[Desktop Entry]\nName[de]=Ringel\n" + exec +
           "X-GNOME-Autostart-Delay=5\n\n[Desktop Action a]\nExec=a\nHidden=true\n",
       "# mine\n\n[Desktop Entry]\nName[de]=Ringel\n" + exec +
           "X-GNOME-Autostart-Delay=5\n\nHidden=true\n\n[Desktop Action a]\nExec=a\nHidden=true\n"},
      {entry(exec + "Hidden=true\n"), false, entry(exec + "Hidden=false\n"),
       entry(exec + "Hidden=true\n")},
      {entry(exec + "X-GNOME-Autostart-enabled=false\n"), false,
       entry(exec + "X-GNOME-Autostart-enabled=true\n"),
       entry(exec + "X-GNOME-Autostart-enabled=true\nHidden=true\n")},
      {entry(exec + "X-MATE-Autostart-enabled=false\n"), false,
       entry(exec + "X-MATE-Autostart-enabled=true\n"),
       entry(exec + "X-MATE-Autostart-enabled=true\nHidden=true\n")},
      {entry("Type=Application\n"), false, entry("Type=Application\n" + exec),
       entry("Type=Application\n" + exec + "Hidden=true\n")}};
  for (const auto& row : rows) {
    home.write("autostart/app.desktop", row.before);
    EXPECT_EQ(isOn(), row.on) << row.before;
    ASSERT_EQ(told(item().registerProgram()), "done");
    EXPECT_EQ(content(), row.registered);
    EXPECT_TRUE(isOn());
    ASSERT_EQ(told(item().unregisterProgram()), "done");
    EXPECT_EQ(content(), row.unregistered);
    EXPECT_EQ(fs::exists(path), !row.unregistered.empty());
    EXPECT_FALSE(isOn());
  }
}

TEST_F(LinuxLoginItemTest, SaysWhatKeepsItFromChanging) {
  const std::string good = "[Desktop Entry]\nExec=x\n";
  const std::string target = home.write("target", good);
  const fs::path directory = fs::path(path).parent_path();
  struct Row {
    std::function<void()> prepare;
    const char* told;
    bool on = false;
  };
  const std::vector<Row> rows{
      {[&] { home.write("autostart", ""); }, ": Not a directory"},
      {[&] { fs::create_directories(path); }, ": not a regular file"},
      {[&] {
         fs::create_directory(directory);
         fs::create_symlink(target, path);
       },
       ": not a regular file", true},
      {[&] { home.write("autostart/app.desktop", std::string(70000, '#')); }, ": too large"},
      {[&] { home.write("autostart/app.desktop", "[Other]\nExec=x\n"); }, ": not a desktop entry"},
      {[&] { home.write("autostart/app.desktop", "Exec"); }, ": not a desktop entry"},
      {[&] { fs::permissions(home.write("autostart/app.desktop", good), fs::perms::none); },
       ": Permission denied"},
      {[&] {
         home.write("autostart/app.desktop", good);
         fs::permissions(directory, fs::perms::owner_read | fs::perms::owner_exec);
       },
       ": Permission denied", true}};
  for (const auto& row : rows) {
    fs::remove_all(directory);
    row.prepare();
    test::asOrdinaryUser([&] {
      EXPECT_EQ(isOn(), row.on) << row.told;
      EXPECT_EQ(told(item().registerProgram()), row.told);
      if (fs::is_directory(directory)) {
        EXPECT_EQ(told(item().unregisterProgram()), row.told);
      }
    });
  }
  fs::permissions(directory, fs::perms::owner_all);
  ASSERT_EQ(told(item().registerProgram()), "done");
  fs::permissions(directory, fs::perms::owner_read | fs::perms::owner_exec);
  test::asOrdinaryUser(
      [&] { EXPECT_EQ(told(item().registerProgram()), "done") << "as it is already"; });
  EXPECT_EQ(readWholeFile(target, 100).value_or(""), good);
  fs::remove_all(directory);
  for (const char* const nowhere : {"", "/\xff"}) {
    EXPECT_EQ(told(item(nowhere).registerProgram()), "an entry cannot name this program's place");
  }
}

}  // namespace
}  // namespace marigold
