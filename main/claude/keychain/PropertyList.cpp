#include "claude/keychain/PropertyList.h"

#include <cstdint>

#include <plist/plist.h>

#include "claude/keychain/BinaryPropertyList.h"

namespace marigold {

std::optional<PropertyList> PropertyList::parse(std::string_view bytes) {
  if (bytes.size() > largest) {
    return std::nullopt;
  }
  plist_t root = nullptr;
  if (!isBinaryPropertyList(bytes)) {
    ::plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  } else if (sharesNothing(bytes)) {
    ::plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  }
  return root != nullptr ? std::optional(PropertyList(Root(root, ::plist_free))) : std::nullopt;
}

std::optional<std::vector<std::string>> PropertyList::texts(const std::string& key) const {
  auto* const list = ::plist_get_node_type(root_.get()) == PLIST_DICT
                         ? ::plist_dict_get_item(root_.get(), key.c_str())
                         : nullptr;
  if (list == nullptr || ::plist_get_node_type(list) != PLIST_ARRAY) {
    return std::nullopt;
  }
  std::vector<std::string> texts(::plist_array_get_size(list));
  for (std::uint32_t i = 0; i < texts.size(); ++i) {
    std::uint64_t length = 0;
    const char* text = ::plist_get_string_ptr(::plist_array_get_item(list, i), &length);
    if (text == nullptr) {
      return std::nullopt;
    }
    texts[i].assign(text, length);
  }
  return texts;
}

}  // namespace marigold
