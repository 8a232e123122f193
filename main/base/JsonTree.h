#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/Secret.h"

namespace marigold {

/// What a JsonDocument holds: its values as a flat list of nodes in document order. A container's
/// items follow it up to `end`, so neither building, walking nor freeing hostile nesting needs
/// recursion.
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

  /// The tree of an object, the first of its nodes; null unless `text` is one.
  [[nodiscard]] static std::unique_ptr<JsonTree> parse(std::string_view text, bool isSecret);

  /// For a source of so many bytes.
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

}  // namespace marigold
