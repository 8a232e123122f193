#include "linux/system/JsonDefaults.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>

#include "base/AtomicFile.h"
#include "base/BoundedFile.h"
#include "base/JsonDocument.h"
#include "base/JsonWriter.h"

namespace marigold {

namespace {

// Some forty short members; anything larger is not ours.
constexpr std::size_t largestFile = 1 << 20;

bool exists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(path, error));
}

std::string freeNameBeside(const std::string& path) {
  const std::string base = path + ".corrupt";
  std::string name = base;
  for (int number = 2; exists(name); ++number) {
    name = base + "-" + std::to_string(number);
  }
  return name;
}

// Keeps other instances from changing the files in a directory as long as it is open. One that
// holds its lock for two seconds is stuck and not waited for; nor are file systems without locks.
OwnedDescriptor lock(const std::string& directory) {
  constexpr int attempts = 200;
  constexpr int pauseMilliseconds = 10;
  OwnedDescriptor place(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int attempt = 1; place.isOpen() && ::flock(place.get(), LOCK_EX | LOCK_NB) != 0 &&
                        errno == EWOULDBLOCK && attempt < attempts;
       ++attempt) {
    (void)::poll(nullptr, 0, pauseMilliseconds);
  }
  return place;
}

}  // namespace

JsonDefaults::JsonDefaults(std::string path, Log& log) : path_(std::move(path)), log_(log) {
  (void)read();
}

DefaultsValue JsonDefaults::value(std::string_view key) const {
  const auto found = values_.find(key);
  if (found == values_.end()) {
    return {};
  }
  if (const auto* flag = std::get_if<bool>(&found->second)) {
    return *flag;
  }
  const auto* text = std::get_if<std::string>(&found->second);
  return text != nullptr ? DefaultsValue(*text) : DefaultsValue();
}

void JsonDefaults::apply(const std::vector<DefaultsChange>& changes) {
  const std::string directory = std::filesystem::path(linkTarget(path_)).parent_path();
  // What goes wrong here goes wrong for the file, too, and is told then.
  [[maybe_unused]] const auto ignored = createDirectories(directory);
  const OwnedDescriptor held = lock(directory);
  const Content content = read();
  for (const DefaultsChange& change : changes) {
    if (put(values_, change)) {
      unsaved_.insert_or_assign(change.first, change.second);
    }
  }
  if (!unsaved_.empty() && content != Content::unreadable &&
      (content != Content::notOurs || moveAside())) {
    save();
  }
}

void JsonDefaults::follow(LinuxEventLoop& loop) {
  hasNews_ = false;  // nobody knew the old
  watch_ = std::make_unique<FileWatch>(loop, path_, [this] { followChange(); });
  followChange();  // for what happened since it was first read
}

void JsonDefaults::followChange() {
  if (read() == Content::notOurs) {
    say(" holds no preferences and is not followed");
  }
  if (std::exchange(hasNews_, false) && onChange) {
    onChange();
  }
}

// Takes over what the file holds now.
JsonDefaults::Content JsonDefaults::read() {
  const auto content = readWholeFile(linkTarget(path_), largestFile);
  if (!content && content.error() == FileFailure::unreadable) {
    say(" stays as it is, since it cannot be read; changes last until the program ends");
    return Content::unreadable;
  }
  if (content ? content->empty() : content.error() == FileFailure::missing) {
    return Content::none;
  }
  const auto document = content ? JsonDocument::parseObject(*content) : std::nullopt;
  const auto members = document ? document->root().members() : std::nullopt;
  if (!members) {
    return Content::notOurs;
  }
  Values values;
  for (const auto& [key, member] : *members) {
    if (const auto flag = member.flag()) {
      values.try_emplace(key, *flag);
    } else if (auto text = member.text()) {
      values.try_emplace(key, std::move(*text));
    } else {
      values.try_emplace(key, Foreign{member.json()});
    }
  }
  for (const auto& change : unsaved_) {
    put(values, change);
  }
  if (unsaved_.empty()) {
    said_.clear();
  }
  hasNews_ |= values != values_;
  values_ = std::move(values);
  return Content::values;
}

// Once as long as it lasts.
void JsonDefaults::say(std::string_view trouble) {
  if (said_ != trouble) {
    said_ = trouble;
    log_.error("preferences: " + path_ + said_);
  }
}

// The link itself moves, never the file it was pointed at.
bool JsonDefaults::moveAside() {
  const std::string aside = freeNameBeside(path_);
  if (std::rename(path_.c_str(), aside.c_str()) != 0) {
    say(" stays as it is, since it holds no preferences and cannot be moved aside");
    return false;
  }
  say(" holds no preferences, moved to " + aside);
  return true;
}

// Whether that changed anything.
bool JsonDefaults::put(Values& values, const DefaultsChange& change) {
  const auto& [key, value] = change;
  if (std::holds_alternative<std::monostate>(value)) {
    return values.erase(key) > 0;
  }
  const auto* flag = std::get_if<bool>(&value);
  Stored stored = flag != nullptr ? Stored(*flag) : Stored(std::get<std::string>(value));
  const auto [place, isNew] = values.try_emplace(key, stored);
  if (isNew || place->second == stored) {
    return isNew;
  }
  place->second = std::move(stored);
  return true;
}

void JsonDefaults::save() {
  JsonWriter json;
  json.beginObject();
  for (const auto& [key, stored] : values_) {
    json.key(key);
    if (const auto* flag = std::get_if<bool>(&stored)) {
      json.flag(*flag);
    } else if (const auto* text = std::get_if<std::string>(&stored)) {
      json.text(*text);
    } else {
      json.json(std::get<Foreign>(stored).json);
    }
  }
  json.endObject();

  const auto content = json.finished();
  const auto saved = content
                         ? replaceFile(linkTarget(path_), *content + "\n")
                         : std::unexpected(std::make_error_code(std::errc::illegal_byte_sequence));
  if (!saved) {
    say(" cannot be saved: " + saved.error().message());
    return;
  }
  unsaved_.clear();
  said_.clear();
}

}  // namespace marigold
