#include "linux/system/LinuxLoginItem.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include <glib.h>

#include "base/AtomicFile.h"
#include "base/BoundedFile.h"
#include "linux/system/FileWatch.h"

namespace marigold {

namespace {

constexpr std::size_t largestEntry = 1 << 16;

constexpr const char* execKey = G_KEY_FILE_DESKTOP_KEY_EXEC;
constexpr const char* hiddenKey = G_KEY_FILE_DESKTOP_KEY_HIDDEN;
// By which desktops disable an entry besides, when they are false.
constexpr std::array enabledKeys{"X-GNOME-Autostart-enabled", "X-MATE-Autostart-enabled"};

// A desktop entry: its group of keys, and whatever else is in the file.
class Entry {
 public:
  // Null when the text is none.
  static std::unique_ptr<Entry> parse(const std::string& text) {
    auto entry = std::make_unique<Entry>();
    constexpr int keepAll = int{G_KEY_FILE_KEEP_COMMENTS} | int{G_KEY_FILE_KEEP_TRANSLATIONS};
    // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): flags
    const auto flags = static_cast<GKeyFileFlags>(keepAll);
    GKeyFile* const file = entry->file_.get();
    return g_key_file_load_from_data(file, text.c_str(), text.size(), flags, nullptr) != 0 &&
                   g_key_file_has_group(file, group) != 0
               ? std::move(entry)
               : nullptr;
  }
  static std::unique_ptr<Entry> named(const std::string& name) {
    auto entry = std::make_unique<Entry>();
    entry->set(G_KEY_FILE_DESKTOP_KEY_TYPE, G_KEY_FILE_DESKTOP_TYPE_APPLICATION);
    entry->set(G_KEY_FILE_DESKTOP_KEY_NAME, name);
    return entry;
  }

  // As it stands in the file; empty when it does not.
  [[nodiscard]] std::string value(const char* key) const {
    return owned(g_key_file_get_value(file_.get(), group, key, nullptr));
  }
  void set(const char* key, const std::string& text) {
    g_key_file_set_string(file_.get(), group, key, text.c_str());
  }
  [[nodiscard]] std::string text() const {
    return owned(g_key_file_to_data(file_.get(), nullptr, nullptr));
  }

  [[nodiscard]] bool starts() const {
    bool enabled = !value(execKey).empty() && value(hiddenKey) != "true";
    for (const char* const key : enabledKeys) {
      enabled = enabled && value(key) != "false";
    }
    return enabled;
  }
  void start(const std::string& command) {
    set(execKey, command);
    if (value(hiddenKey) == "true") {
      set(hiddenKey, "false");
    }
    for (const char* const key : enabledKeys) {
      if (value(key) == "false") {
        set(key, "true");
      }
    }
  }

 private:
  static constexpr const char* group = G_KEY_FILE_DESKTOP_GROUP;

  static std::string owned(gchar* text) {
    const std::unique_ptr<gchar, decltype(&g_free)> held(text, &g_free);
    return text != nullptr ? text : "";
  }

  std::unique_ptr<GKeyFile, decltype(&g_key_file_unref)> file_{g_key_file_new(), &g_key_file_unref};
};

// The program as a command line of desktop entries: quoted, and without a field code.
std::string commandLine(const std::string& program) {
  std::string command = "\"";
  for (const char character : program) {
    if (std::string_view(R"("`$\)").contains(character)) {
      command += '\\';
    } else if (character == '%') {
      command += '%';
    }
    command += character;
  }
  return command + "\"";
}

std::unexpected<std::string> trouble(const std::string& path, const std::string& what) {
  return std::unexpected(path + ": " + what);
}

// The entry at the path; null when there is none.
std::expected<std::unique_ptr<Entry>, std::string> read(const std::string& path) {
  const auto content = readWholeFile(path, largestEntry);
  if (!content) {
    switch (content.error()) {
      case FileFailure::missing:
        return nullptr;
      case FileFailure::notRegular:
        return trouble(path, "not a regular file");
      case FileFailure::tooLarge:
        return trouble(path, "too large");
      case FileFailure::unreadable:
        return trouble(path, std::generic_category().message(errno));
    }
  }
  if (content->empty()) {
    return nullptr;
  }
  auto entry = Entry::parse(*content);
  if (!entry) {
    return trouble(path, "not a desktop entry");
  }
  return entry;
}

std::expected<void, std::string> write(const std::string& path, const Entry& entry) {
  auto done = createDirectories(std::filesystem::path(path).parent_path());
  if (done) {
    done = replaceFile(path, entry.text());
  }
  if (!done) {
    return trouble(path, done.error().message());
  }
  return {};
}

}  // namespace

LinuxLoginItem::LinuxLoginItem(const Surroundings& surroundings, std::string program)
    : path_(surroundings.configuration + "/autostart/" + surroundings.bundleIdentifier +
            ".desktop"),
      name_(surroundings.isDevBuild() ? "Marigold Dev" : "Marigold"),
      program_(std::move(program)) {}

LoginItem::Status LinuxLoginItem::status() const {
  const auto entry = read(linkTarget(path_));
  return entry && *entry != nullptr && (*entry)->starts() ? Status::enabled : Status::notRegistered;
}

std::expected<void, std::string> LinuxLoginItem::registerProgram() {
  if (program_.empty() || g_utf8_validate(program_.c_str(), -1, nullptr) == 0) {
    return std::unexpected("an entry cannot name this program's place");
  }
  auto found = read(path_);
  if (!found) {
    return std::unexpected(found.error());
  }
  const auto entry = *found != nullptr ? *std::move(found) : Entry::named(name_);
  const std::string before = entry->text();
  entry->start(commandLine(program_));
  return entry->text() != before ? write(path_, *entry) : std::expected<void, std::string>();
}

std::expected<void, std::string> LinuxLoginItem::unregisterProgram() {
  auto found = read(path_);
  if (!found) {
    return std::unexpected(found.error());
  }
  const auto entry = *std::move(found);
  if (entry == nullptr) {
    return {};
  }
  const auto ours = Entry::named(name_);
  ours->start(commandLine(program_));
  entry->start(commandLine(program_));
  if (entry->text() != ours->text()) {
    entry->set(hiddenKey, "true");
    return write(path_, *entry);
  }
  std::error_code error;
  if (!std::filesystem::remove(path_, error) && error) {
    return trouble(path_, error.message());
  }
  return {};
}

}  // namespace marigold
