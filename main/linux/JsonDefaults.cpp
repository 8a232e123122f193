#include "JsonDefaults.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>

#include "AtomicFile.h"
#include "BoundedFile.h"
#include "JsonWriter.h"
#include "LenientDecoding.h"

namespace marigold {

namespace {

// Some forty short members; anything larger is not ours.
constexpr std::size_t largestFile = 1 << 20;

// Where the links at `path` lead, be there a file yet or not. In a circle of links: any of them.
std::string linkTarget(const std::string& path) {
  constexpr int mostLinks = 40;  // as many as the kernel follows
  std::filesystem::path target = path;
  for (int links = 0; links < mostLinks; ++links) {
    std::error_code notALink;
    const auto next = std::filesystem::read_symlink(target, notALink);
    if (notALink) {
      break;
    }
    target = target.parent_path() / next;
  }
  return target;
}

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

}  // namespace

JsonDefaults::JsonDefaults(const std::string& path, Log& log) : path_(linkTarget(path)), log_(log) {
  if (!read()) {
    // The link itself moves, never the file it was pointed at.
    moveAside(path);
    path_ = path;
  }
}

// False when something is there that cannot be a preferences file.
bool JsonDefaults::read() {
  const auto content = readWholeFile(path_, largestFile);
  if (!content) {
    if (content.error() == FileFailure::unreadable) {
      refuseToWrite("it cannot be read");
    }
    return content.error() == FileFailure::missing || content.error() == FileFailure::unreadable;
  }
  const auto document = JsonDocument::parseObject(*content);
  const auto members = document ? document->root().members() : std::nullopt;
  if (!members) {
    return false;
  }
  for (const auto& [key, member] : *members) {
    if (const auto flag = member.flag()) {
      values_.try_emplace(key, *flag);
    } else if (auto text = member.text()) {
      values_.try_emplace(key, std::move(*text));
    } else {
      values_.try_emplace(key, Foreign{member.json()});
    }
  }
  return true;
}

void JsonDefaults::moveAside(const std::string& path) {
  const std::string aside = freeNameBeside(path);
  if (std::rename(path.c_str(), aside.c_str()) != 0) {
    refuseToWrite("it holds no preferences and cannot be moved aside");
    return;
  }
  log_.error("preferences: " + path + " holds no preferences, moved to " + aside);
}

void JsonDefaults::refuseToWrite(std::string_view reason) {
  writable_ = false;
  log_.error("preferences: " + path_ + " stays as it is, since " + std::string(reason) +
             "; changes last until the program ends");
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
  bool changed = unsaved_;
  for (const DefaultsChange& change : changes) {
    changed |= put(change);
  }
  if (changed && writable_) {
    save();
  }
}

// Whether that changed anything.
bool JsonDefaults::put(const DefaultsChange& change) {
  const auto& [key, value] = change;
  if (std::holds_alternative<std::monostate>(value)) {
    return values_.erase(key) > 0;
  }
  const auto* flag = std::get_if<bool>(&value);
  Stored stored = flag != nullptr ? Stored(*flag) : Stored(std::get<std::string>(value));
  const auto [place, isNew] = values_.try_emplace(key, stored);
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
  std::expected<void, std::error_code> saved =
      std::unexpected(std::make_error_code(std::errc::illegal_byte_sequence));
  if (content) {
    saved = createDirectories(std::filesystem::path(path_).parent_path());
    if (saved) {
      saved = replaceFile(path_, *content + "\n");
    }
  }
  if (!saved && !unsaved_) {
    log_.error("preferences: cannot save " + path_ + ": " + saved.error().message());
  }
  unsaved_ = !saved;
}

}  // namespace marigold
