#include "base/JsonTree.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <rapidjson/reader.h>

#include "base/AsciiText.h"

namespace marigold {

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
// library's; of numbers there are only stand-ins.
class TreeBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, TreeBuilder> {
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

}  // namespace

std::unique_ptr<JsonTree> JsonTree::parse(std::string_view text, bool isSecret) {
  // The reader takes a NUL byte for the end of its input; JSON has none.
  if (text.find('\0') != std::string_view::npos) {
    return nullptr;
  }
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  text.remove_prefix(text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0);
  auto tree = std::make_unique<JsonTree>(text.size() + padding, isSecret);
  const auto numbers = settingNumbersApart(text, *tree);
  if (!numbers) {
    return nullptr;
  }
  constexpr unsigned flags = rapidjson::kParseInsituFlag | rapidjson::kParseIterativeFlag |
                             rapidjson::kParseValidateEncodingFlag;
  TreeBuilder builder(*tree, *numbers);
  rapidjson::InsituStringStream stream(tree->source.data());
  rapidjson::Reader reader;
  if (reader.Parse<flags>(stream, builder).IsError() || tree->nodes.front().kind != Kind::object) {
    return nullptr;
  }
  return tree;
}

}  // namespace marigold
