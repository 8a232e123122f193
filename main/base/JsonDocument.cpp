#include "base/JsonDocument.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <span>
#include <utility>

#include <rapidjson/reader.h>

#include "base/AsciiText.h"
#include "base/ISODate.h"
#include "base/JsonWriter.h"

namespace marigold {

// The document as a flat list of nodes in document order. A container's items follow it up to
// `end`, so neither building, walking nor freeing hostile nesting needs recursion.
struct JsonTree {
  enum class Kind : std::uint8_t {
    null,
    flag,
    number,
    text,
    brokenText,  // has half a character: none of the shapes that are asked for
    array,
    object
  };
  struct Span {
    std::size_t offset = 0;
    std::size_t length = 0;
  };
  struct Node {
    Kind kind = Kind::null;
    bool flag = false;
    bool keyIsBroken = false;  // a member that cannot be asked for
    Span key;                  // of an object's member
    Span text;                 // of a text; of a number, which stays text until it is asked for
    std::size_t end = 0;
  };

  // For a source of so many bytes.
  JsonTree(std::size_t size, bool isSecret)
      : heap(isSecret ? 0 : size, '\0'),
        pages(Secret::withRoom(isSecret ? size : 0)),
        source(isSecret ? pages.room() : std::span<char>(heap)) {}
  JsonTree(const JsonTree&) = delete;
  JsonTree& operator=(const JsonTree&) = delete;
  ~JsonTree() = default;

  std::vector<Node> nodes;
  std::string heap;  // an ordinary document's source
  Secret pages;      // a secret one's
  // The JSON text with "0" for every number; keys and texts decoded in place. Zero bytes are
  // behind.
  std::span<char> source;
  std::string numbers;  // as they were sent

  [[nodiscard]] std::string_view key(const Node& node) const { return inSource(node.key); }
  // Of a text or a number.
  [[nodiscard]] std::string_view text(const Node& node) const {
    return node.kind == Kind::number
               ? std::string_view(numbers).substr(node.text.offset, node.text.length)
               : inSource(node.text);
  }

 private:
  [[nodiscard]] std::string_view inSource(Span span) const {
    return std::string_view(source.data(), source.size()).substr(span.offset, span.length);
  }
};

namespace {

using Kind = JsonTree::Kind;

// The reader lets the escape of the second half of a character pass, which then is not UTF-8.
bool hasSurrogate(std::string_view text) {
  for (auto at = text.find('\xED'); at != std::string_view::npos; at = text.find('\xED', at + 1)) {
    if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) >= 0xA0) {
      return true;
    }
  }
  return false;
}

// Receives the reader's events, whose texts lie in the tree's source. The member names are the JSON
// library's.
class TreeBuilder {
 public:
  /// `numbers`: where the document's numbers are, in their order.
  TreeBuilder(JsonTree& tree, const std::vector<JsonTree::Span>& numbers)
      : tree_(tree), number_(numbers.begin()) {}

  bool Null() { return add({}); }
  bool Bool(bool value) { return add({.kind = Kind::flag, .flag = value}); }
  bool Uint(unsigned /*standIn*/) { return add({.kind = Kind::number, .text = *number_++}); }
  bool String(const char* text, rapidjson::SizeType length, bool /*copy*/) {
    const bool isBroken = hasSurrogate({text, length});
    return add({.kind = isBroken ? Kind::brokenText : Kind::text, .text = inSource(text, length)});
  }
  bool Key(const char* text, rapidjson::SizeType length, bool /*copy*/) {
    key_ = inSource(text, length);
    keyIsBroken_ = hasSurrogate({text, length});
    return true;
  }
  bool StartObject() { return open(Kind::object); }
  bool EndObject(rapidjson::SizeType /*members*/) { return close(); }
  bool StartArray() { return open(Kind::array); }
  bool EndArray(rapidjson::SizeType /*items*/) { return close(); }

  // Never called: every number is a stand-in.
  static bool RawNumber(const char* /*text*/, rapidjson::SizeType /*length*/, bool /*copy*/) {
    return false;
  }
  static bool Int(int /*value*/) { return false; }
  static bool Int64(std::int64_t /*value*/) { return false; }
  static bool Uint64(std::uint64_t /*value*/) { return false; }
  static bool Double(double /*value*/) { return false; }

 private:
  [[nodiscard]] JsonTree::Span inSource(const char* text, std::size_t length) const {
    return {.offset = static_cast<std::size_t>(text - tree_.source.data()), .length = length};
  }
  bool add(JsonTree::Node node) {
    node.key = std::exchange(key_, {});
    node.keyIsBroken = std::exchange(keyIsBroken_, false);
    node.end = tree_.nodes.size() + 1;
    tree_.nodes.push_back(node);
    return true;
  }
  bool open(Kind kind) {
    open_.push_back(tree_.nodes.size());
    return add({.kind = kind});
  }
  bool close() {
    tree_.nodes[open_.back()].end = tree_.nodes.size();
    open_.pop_back();
    return true;
  }

  JsonTree& tree_;
  std::vector<JsonTree::Span>::const_iterator number_;
  JsonTree::Span key_;
  bool keyIsBroken_ = false;
  std::vector<std::size_t> open_;
};

// Whether `text` is a number by JSON's grammar.
bool isNumber(std::string_view text) {
  const auto digits = [&text] {
    const std::size_t count = leadingDigits(text).size();
    text.remove_prefix(count);
    return count > 0;
  };
  const auto oneOf = [&text](std::string_view characters) {
    const bool is = !text.empty() && characters.find(text.front()) != std::string_view::npos;
    text.remove_prefix(is ? 1 : 0);
    return is;
  };
  oneOf("-");
  if (!oneOf("0") && !digits()) {
    return false;
  }
  if (oneOf(".") && !digits()) {
    return false;
  }
  if (oneOf("eE")) {
    oneOf("+-");
    if (!digits()) {
      return false;
    }
  }
  return text.empty();
}

// The reader takes a zero byte for the end of its input, but a character that begins just before
// takes three bytes more.
constexpr std::size_t padding = 3;

// Whether `text` begins with the escape of one half of a character, whose third digit is one of
// `thirds`.
bool isHalf(std::string_view text, std::string_view thirds) {
  return text.size() > 3 && text.starts_with("\\u") && lowered(text[2]) == 'd' &&
         thirds.find(lowered(text[3])) != std::string_view::npos;
}

// Fills the tree's source, with the numbers set apart: the reader fails a whole document for one
// number beyond a double's range, so it is given a stand-in for each. Gives where they are; nothing
// when one breaks the grammar.
std::optional<std::vector<JsonTree::Span>> settingNumbersApart(std::string_view text,
                                                               JsonTree& into) {
  std::vector<JsonTree::Span> numbers;
  auto end = into.source.begin();  // of what is filled
  bool inString = false;
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    if (!inString && (c == '-' || isDigit(c))) {
      const std::string_view number =
          text.substr(at, text.find_first_not_of("+-.0123456789Ee", at) - at);
      if (!isNumber(number)) {
        return std::nullopt;
      }
      numbers.push_back({.offset = into.numbers.size(), .length = number.size()});
      into.numbers += number;
      *end++ = '0';
      at += number.size();
      continue;
    }
    inString = inString != (c == '"');
    *end++ = c;
    ++at;
    if (inString && c == '\\' && at < text.size()) {
      constexpr std::size_t escape = 6;
      const auto rest = text.substr(at - 1);
      const bool isLone =
          isHalf(rest, "89ab") && !isHalf(rest.substr(std::min(rest.size(), escape)), "cdef");
      *end++ = text[at++];
      if (isLone) {  // a second half without its first passes the reader, a first one does not
        *end++ = text[at++];
        *end++ = 'c';
        ++at;
      }
    }
  }
  return numbers;
}

// Digits only, since a JSON number that looks whole must not lose precision through a float.
std::optional<std::int64_t> wholeDigits(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return value;
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
  return tree_ != nullptr && tree_->nodes[node_].kind == Kind::null;
}

std::optional<std::string> JsonValue::text() const {
  if (tree_ == nullptr || tree_->nodes[node_].kind != Kind::text) {
    return std::nullopt;
  }
  return std::string(tree_->text(tree_->nodes[node_]));
}

std::optional<Secret> JsonValue::secret() const {
  if (tree_ == nullptr || tree_->nodes[node_].kind != Kind::text) {
    return std::nullopt;
  }
  return Secret(tree_->text(tree_->nodes[node_]));
}

std::optional<double> JsonValue::number() const {
  if (tree_ == nullptr || tree_->nodes[node_].kind != Kind::number) {
    return std::nullopt;
  }
  const auto value = decimalNumber(tree_->text(tree_->nodes[node_]));
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
  if (tree_ == nullptr || tree_->nodes[node_].kind != Kind::flag) {
    return std::nullopt;
  }
  return tree_->nodes[node_].flag;
}

std::optional<JsonValue> JsonValue::object() const {
  if (tree_ == nullptr || tree_->nodes[node_].kind != Kind::object) {
    return std::nullopt;
  }
  return *this;
}

std::optional<std::vector<JsonValue>> JsonValue::list() const {
  if (tree_ == nullptr || tree_->nodes[node_].kind != Kind::array) {
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
  // The reader takes a NUL byte for the end of its input; JSON has none.
  if (text.find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  text.remove_prefix(text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0);
  auto tree = std::make_unique<JsonTree>(text.size() + padding, isSecret);
  const auto numbers = settingNumbersApart(text, *tree);
  if (!numbers) {
    return std::nullopt;
  }
  constexpr unsigned flags = rapidjson::kParseInsituFlag | rapidjson::kParseIterativeFlag |
                             rapidjson::kParseValidateEncodingFlag;
  TreeBuilder builder(*tree, *numbers);
  rapidjson::InsituStringStream stream(tree->source.data());
  rapidjson::Reader reader;
  if (reader.Parse<flags>(stream, builder).IsError() || tree->nodes.front().kind != Kind::object) {
    return std::nullopt;
  }
  return JsonDocument(std::move(tree));
}

JsonDocument::JsonDocument(std::unique_ptr<JsonTree> tree) : tree_(std::move(tree)) {}
JsonDocument::JsonDocument(JsonDocument&&) noexcept = default;
JsonDocument& JsonDocument::operator=(JsonDocument&&) noexcept = default;
JsonDocument::~JsonDocument() = default;

JsonValue JsonDocument::root() const {
  return {*tree_, 0};
}

}  // namespace marigold
