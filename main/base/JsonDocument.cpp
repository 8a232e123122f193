#include "base/JsonDocument.h"

#include <charconv>
#include <cmath>
#include <utility>

#include "base/AsciiText.h"
#include "base/ISODate.h"
#include "base/JsonTree.h"
#include "base/JsonWriter.h"

namespace marigold {

namespace {

using Kind = JsonTree::Kind;

// Digits only, since a JSON number that looks whole must not lose precision through a float.
std::optional<std::int64_t> wholeDigits(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return value;
}

// Null for a value of another kind.
const JsonTree::Node* nodeOf(const JsonTree* tree, std::size_t at, Kind kind) {
  return tree != nullptr && tree->nodes[at].kind == kind ? &tree->nodes[at] : nullptr;
}

}  // namespace

JsonValue JsonValue::operator[](std::string_view key) const {
  if (!object()) {
    return {};
  }
  const auto& nodes = tree_->nodes;
  for (std::size_t member = node_ + 1; member < nodes[node_].end; member = nodes[member].end) {
    if (tree_->key(nodes[member]) == key) {
      return {*tree_, member};
    }
  }
  return {};
}

bool JsonValue::isNull() const {
  return nodeOf(tree_, node_, Kind::null) != nullptr;
}

std::optional<std::string> JsonValue::text() const {
  const auto* node = nodeOf(tree_, node_, Kind::text);
  return node != nullptr ? std::optional(std::string(tree_->text(*node))) : std::nullopt;
}

std::optional<Secret> JsonValue::secret() const {
  const auto* node = nodeOf(tree_, node_, Kind::text);
  return node != nullptr ? std::optional(Secret(tree_->text(*node))) : std::nullopt;
}

std::optional<double> JsonValue::number() const {
  const auto* node = nodeOf(tree_, node_, Kind::number);
  const auto value = node != nullptr ? decimalNumber(tree_->text(*node)) : std::nullopt;
  return value && std::isfinite(*value) ? value : std::nullopt;
}

std::optional<std::int64_t> JsonValue::wholeNumber() const {
  const auto value = number();
  if (!value) {
    return std::nullopt;
  }
  const std::string_view text = tree_->text(tree_->nodes[node_]);
  if (text.find_first_of(".eE") == std::string_view::npos) {
    return wholeDigits(text);
  }
  // 2^63 as a float is the first value beyond the range; below it every whole float converts.
  if (std::trunc(*value) != *value || *value < -0x1p63 || *value >= 0x1p63) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(*value);
}

std::optional<bool> JsonValue::flag() const {
  const auto* node = nodeOf(tree_, node_, Kind::flag);
  return node != nullptr ? std::optional(node->flag) : std::nullopt;
}

std::optional<JsonValue> JsonValue::object() const {
  return nodeOf(tree_, node_, Kind::object) != nullptr ? std::optional(*this) : std::nullopt;
}

std::optional<std::vector<JsonValue>> JsonValue::list() const {
  if (nodeOf(tree_, node_, Kind::array) == nullptr) {
    return std::nullopt;
  }
  const auto& nodes = tree_->nodes;
  std::vector<JsonValue> items;
  for (std::size_t item = node_ + 1; item < nodes[node_].end; item = nodes[item].end) {
    items.emplace_back(*tree_, item);
  }
  return items;
}

std::optional<std::vector<std::pair<std::string, JsonValue>>> JsonValue::members() const {
  if (!object()) {
    return std::nullopt;
  }
  const auto& nodes = tree_->nodes;
  std::vector<std::pair<std::string, JsonValue>> members;
  for (std::size_t member = node_ + 1; member < nodes[node_].end; member = nodes[member].end) {
    if (!nodes[member].keyIsBroken) {
      members.emplace_back(tree_->key(nodes[member]), JsonValue(*tree_, member));
    }
  }
  return members;
}

std::string JsonValue::json() const {
  JsonWriter out;
  std::vector<const JsonTree::Node*> open;
  const auto closeInnermost = [&] {
    open.back()->kind == Kind::object ? out.endObject() : out.endArray();
    open.pop_back();
  };
  const std::size_t end = isAbsent() ? 0 : tree_->nodes[node_].end;
  for (std::size_t at = node_; at < end; ++at) {
    const JsonTree::Node& node = tree_->nodes[at];
    while (!open.empty() && open.back()->end == at) {
      closeInnermost();
    }
    if (node.keyIsBroken) {
      at = node.end - 1;
      continue;
    }
    if (!open.empty() && open.back()->kind == Kind::object) {
      out.key(tree_->key(node));
    }
    switch (node.kind) {
      case Kind::null:
      case Kind::brokenText:
        out.json("null");
        break;
      case Kind::flag:
        out.flag(node.flag);
        break;
      case Kind::number:
        out.json(tree_->text(node));
        break;
      case Kind::text:
        out.text(tree_->text(node));
        break;
      case Kind::array:
        out.beginArray();
        open.push_back(&node);
        break;
      case Kind::object:
        out.beginObject();
        open.push_back(&node);
        break;
    }
  }
  while (!open.empty()) {
    closeInnermost();
  }
  return out.finished().value_or("null");
}

std::optional<Date> JsonValue::date() const {
  return ISODate::parse(text());
}

std::optional<JsonDocument> JsonDocument::parseObject(std::string_view text) {
  return parse(text, false);
}

std::optional<JsonDocument> JsonDocument::parseSecretObject(std::string_view text) {
  return parse(text, true);
}

std::optional<JsonDocument> JsonDocument::parse(std::string_view text, bool isSecret) {
  auto tree = JsonTree::parse(text, isSecret);
  return tree ? std::optional(JsonDocument(std::move(tree))) : std::nullopt;
}

JsonDocument::JsonDocument(std::unique_ptr<JsonTree> tree) : tree_(std::move(tree)) {}
JsonDocument::JsonDocument(JsonDocument&&) noexcept = default;
JsonDocument& JsonDocument::operator=(JsonDocument&&) noexcept = default;
JsonDocument::~JsonDocument() = default;

JsonValue JsonDocument::root() const {
  return {*tree_, 0};
}

}  // namespace marigold
