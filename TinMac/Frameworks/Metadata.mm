#import "TinMac/Frameworks/Metadata.h"

#include <cstring>

#import "TinMac/Frameworks/Objects.h"

/// Images name it in their classes; nothing reads it.
TIN_EXPORT void* _objc_empty_cache = nullptr;

namespace tinmac {

namespace {

constexpr std::uint32_t relativeList = 0x80000000;
constexpr std::uint32_t directSelectors = 0x40000000;
constexpr std::uint32_t entrySizeMask = 0x0000fffc;

/// Follows an offset that stands at `word`.
const std::byte* relative(const std::byte* word) {
  std::int32_t offset = 0;
  std::memcpy(&offset, word, sizeof offset);
  return word + offset;
}

}  // namespace

std::size_t methodCount(const MethodListRecord* list) { return list == nullptr ? 0 : list->count; }

MethodFacts methodAt(const MethodListRecord* list, std::size_t index) {
  const auto* entries = reinterpret_cast<const std::byte*>(list + 1);
  const std::byte* entry = entries + index * (list->sizeAndFlags & entrySizeMask);
  MethodFacts facts{};
  if ((list->sizeAndFlags & relativeList) == 0) {
    std::memcpy(&facts, entry, sizeof facts);
    return facts;
  }
  const std::byte* name = relative(entry);
  if ((list->sizeAndFlags & directSelectors) != 0) {
    facts.name = reinterpret_cast<const char*>(name);
  } else {
    std::memcpy(&facts.name, name, sizeof facts.name);
  }
  facts.types = reinterpret_cast<const char*>(relative(entry + sizeof(std::int32_t)));
  facts.implementation =
      reinterpret_cast<IMP>(const_cast<std::byte*>(relative(entry + 2 * sizeof(std::int32_t))));
  return facts;
}

}  // namespace tinmac
