#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

#include "VirtualMac/Tools/PropertyListText.h"

namespace virtualmac {

namespace {

using korvel::PropertyValue;

struct Freed {
  void operator()(void* node) const { plist_free(node); }
};
/// The library gives away memory that C allocated.
struct GivenBack {
  void operator()(void* memory) const { std::free(memory); }
};
using Text = std::unique_ptr<char, GivenBack>;

PropertyValue valueOf(plist_t node);

PropertyValue textOf(plist_t node) {
  char* text = nullptr;
  plist_get_string_val(node, &text);
  const Text owned(text);
  return text == nullptr ? PropertyValue() : PropertyValue(std::string(text));
}

PropertyValue dataOf(plist_t node) {
  char* bytes = nullptr;
  std::uint64_t size = 0;
  plist_get_data_val(node, &bytes, &size);
  const Text owned(bytes);
  return bytes == nullptr ? PropertyValue::Data() : PropertyValue::Data(bytes, bytes + size);
}

PropertyValue arrayOf(plist_t node) {
  PropertyValue::Array elements;
  const std::uint32_t size = plist_array_get_size(node);
  elements.reserve(size);
  for (std::uint32_t index = 0; index < size; ++index) {
    elements.push_back(valueOf(plist_array_get_item(node, index)));
  }
  return elements;
}

PropertyValue dictionaryOf(plist_t node) {
  PropertyValue::Dictionary entries;
  plist_dict_iter walk = nullptr;
  plist_dict_new_iter(node, &walk);
  const std::unique_ptr<void, GivenBack> owned(walk);
  for (;;) {
    char* key = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(node, walk, &key, &value);
    const Text ownedKey(key);
    if (key == nullptr || value == nullptr) return entries;
    entries.insert_or_assign(std::string(key), valueOf(value));
  }
}

PropertyValue valueOf(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return value != 0;
    }
    case PLIST_UINT: {
      // The library has one type for whole numbers; a negative one is there as it is in memory.
      std::uint64_t value = 0;
      plist_get_uint_val(node, &value);
      return static_cast<std::int64_t>(value);
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return value;
    }
    case PLIST_STRING:
      return textOf(node);
    case PLIST_DATA:
      return dataOf(node);
    case PLIST_ARRAY:
      return arrayOf(node);
    case PLIST_DICT:
      return dictionaryOf(node);
    default:
      return {};  // Dates, of which a battery has none.
  }
}

}  // namespace

std::optional<PropertyValue> parsedPropertyList(std::string_view xml) {
  plist_t parsed = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &parsed);
  if (parsed == nullptr) return std::nullopt;
  const std::unique_ptr<void, Freed> owned(parsed);
  return valueOf(parsed);
}

}  // namespace virtualmac
