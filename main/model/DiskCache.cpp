#include "model/DiskCache.h"

#include <utility>

#include <unistd.h>

#include "base/AtomicFile.h"
#include "base/BoundedFile.h"
#include "base/JsonWriter.h"
#include "base/LenientDecoding.h"

namespace marigold {

namespace {

// 2001-01-01 00:00:00 UTC in seconds since 1970: the reference date of the stored dates.
constexpr double referenceDate = 978307200;

// A cache file holds a handful of windows; anything larger is not ours.
constexpr std::size_t largestFile = 1 << 20;

double storedDate(Date date) {
  return date.time_since_epoch().count() - referenceDate;
}

std::optional<Date> dateUnder(std::string_view key, JsonValue container) {
  const auto seconds = container[key].number();
  return seconds ? std::optional(dateFromEpoch(*seconds + referenceDate)) : std::nullopt;
}

// An optional field: absent and null are fine, any other type spoils the file.
bool wrongType(std::string_view key, JsonValue container, bool decoded) {
  return !decoded && sentNonNull(key, container);
}

std::optional<UsageWindow> decodeWindow(JsonValue item) {
  auto label = item["label"].text();
  const auto percent = sanitizePercent(item["percent"].number());
  const auto resetsAt = dateUnder("resetsAt", item);
  if (!label || !percent || wrongType("resetsAt", item, resetsAt.has_value())) {
    return std::nullopt;
  }
  return UsageWindow{.label = std::move(*label), .percent = *percent, .resetsAt = resetsAt};
}

void writeOptional(JsonWriter& json, std::string_view key, const std::optional<std::string>& text) {
  if (text) {
    json.key(key);
    json.text(*text);
  }
}

}  // namespace

std::string_view builtInBundleIdentifier() noexcept {
  return MARIGOLD_BUNDLE_IDENTIFIER;
}

DiskCache DiskCache::readOnly() const {
  DiskCache cache = *this;
  cache.isReadOnly_ = true;
  return cache;
}

std::string DiskCache::bundleID() const {
  return surroundings_.bundleIdentifier.empty() ? std::string(builtInBundleIdentifier())
                                                : surroundings_.bundleIdentifier;
}

std::string DiskCache::dir() const {
  if (const std::string chosen = surroundings_.variable("MARIGOLD_CACHE_DIR"); !chosen.empty()) {
    return withoutTrailingSlashes(surroundings_.expandingTilde(chosen));
  }
  const std::string& base = surroundings_.applicationSupport.empty()
                                ? surroundings_.temporary
                                : surroundings_.applicationSupport;
  return base + "/" + bundleID() + "/cache";
}

std::string DiskCache::file(ProviderID provider) const {
  return dir() + "/" + std::string(rawValue(provider)) + ".json";
}

void DiskCache::save(const CachedSnapshot& snapshot) const {
  const auto content = isReadOnly_ ? std::nullopt : encodeCachedSnapshot(snapshot);
  if (content && createDirectories(dir())) {
    // A failure means that nothing is restored after the next start, which is no news to anybody.
    [[maybe_unused]] const auto ignored = replaceFile(file(snapshot.provider), *content);
  }
}

std::optional<CachedSnapshot> DiskCache::load(ProviderID provider) const {
  const auto content = readWholeFile(file(provider), largestFile);
  auto snapshot = content ? decodeCachedSnapshot(*content) : std::nullopt;
  // A file under another provider's name would show one tool's usage as another's.
  return snapshot && snapshot->provider == provider ? std::move(snapshot) : std::nullopt;
}

void DiskCache::remove(ProviderID provider) const {
  if (isReadOnly_) {
    return;
  }
  const std::string path = file(provider);
  ::unlink(path.c_str());
  removeTemporariesOf(path);
}

std::optional<std::string> encodeCachedSnapshot(const CachedSnapshot& snapshot) {
  JsonWriter json;
  json.beginObject();
  json.key("provider");
  json.text(rawValue(snapshot.provider));
  json.key("windows");
  json.beginArray();
  for (const UsageWindow& window : snapshot.windows) {
    json.beginObject();
    json.key("label");
    json.text(window.label);
    json.key("percent");
    json.number(window.percent);
    if (window.resetsAt) {
      json.key("resetsAt");
      json.number(storedDate(*window.resetsAt));
    }
    json.endObject();
  }
  json.endArray();
  json.key("capturedAt");
  json.number(storedDate(snapshot.capturedAt));
  writeOptional(json, "planLabel", snapshot.planLabel);
  writeOptional(json, "extraNote", snapshot.extraNote);
  json.endObject();
  return json.finished();
}

std::optional<CachedSnapshot> decodeCachedSnapshot(std::string_view content) {
  const auto document = JsonDocument::parseObject(content);
  if (!document) {
    return std::nullopt;
  }
  const JsonValue root = document->root();
  const auto providerText = root["provider"].text();
  const auto provider = providerText ? fromRawValue<ProviderID>(*providerText) : std::nullopt;
  const auto items = root["windows"].list();
  const auto capturedAt = dateUnder("capturedAt", root);
  auto planLabel = root["planLabel"].text();
  auto extraNote = root["extraNote"].text();
  if (!provider || !items || !capturedAt || wrongType("planLabel", root, planLabel.has_value()) ||
      wrongType("extraNote", root, extraNote.has_value())) {
    return std::nullopt;
  }
  CachedSnapshot snapshot{.provider = *provider,
                          .windows = {},
                          .capturedAt = *capturedAt,
                          .planLabel = std::move(planLabel),
                          .extraNote = std::move(extraNote)};
  for (const JsonValue& item : *items) {
    auto window = decodeWindow(item);
    if (!window) {
      return std::nullopt;
    }
    snapshot.windows.push_back(std::move(*window));
  }
  return snapshot;
}

}  // namespace marigold
