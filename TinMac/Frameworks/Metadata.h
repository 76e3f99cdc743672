#pragma once

#include <cstddef>
#include <cstdint>

#import "TinMac/Frameworks/Apple.h"

/// The compiler writes these into an image for Objective-C: the words as they lie in memory.
namespace tinmac {

struct MethodListRecord {
  std::uint32_t sizeAndFlags;
  std::uint32_t count;
};

struct ProtocolRecord {
  Class isa;
  const char* name;
  const struct ProtocolListRecord* protocols;
  const MethodListRecord* instanceMethods;
  const MethodListRecord* classMethods;
  const MethodListRecord* optionalInstanceMethods;
  const MethodListRecord* optionalClassMethods;
  const void* properties;
  std::uint32_t size;
  std::uint32_t flags;
  /// One for each method, in the order of the four lists.
  const char* const* extendedTypes;
};

struct ProtocolListRecord {
  std::uint64_t count;
  ProtocolRecord* protocols[1];  // As many as `count`.
};

/// Of the flags in ClassFacts.
enum ClassFlag : std::uint32_t {
  ClassFlagMeta = 1U << 0U,
  ClassFlagRoot = 1U << 1U,
  ClassFlagHasConstructors = 1U << 2U,
};

struct ClassFacts {
  std::uint32_t flags;
  std::uint32_t instanceStart;
  std::uint32_t instanceSize;
  std::uint32_t reserved;
  const std::uint8_t* ivarLayout;
  const char* name;
  const MethodListRecord* methods;
  const ProtocolListRecord* protocols;
  const void* ivars;
  const std::uint8_t* weakIvarLayout;
  const void* properties;
};

struct ClassRecord {
  ClassRecord* isa;
  ClassRecord* superclass;
  void* cache;
  void* table;
  /// The facts' address; its lowest bits are flags of other languages.
  std::uintptr_t data;

  [[nodiscard]] const ClassFacts& facts() const {
    return *reinterpret_cast<const ClassFacts*>(data & ~std::uintptr_t{7});
  }
  [[nodiscard]] bool isMeta() const { return (facts().flags & ClassFlagMeta) != 0; }
};

struct CategoryRecord {
  const char* name;
  ClassRecord* cls;
  const MethodListRecord* instanceMethods;
  const MethodListRecord* classMethods;
  const ProtocolListRecord* protocols;
};

struct MethodFacts {
  /// As the image has it: not yet the selector that all images share.
  const char* name;
  const char* types;
  IMP implementation;
};
std::size_t methodCount(const MethodListRecord* list);
MethodFacts methodAt(const MethodListRecord* list, std::size_t index);

inline ClassRecord* record(Class cls) { return reinterpret_cast<ClassRecord*>(cls); }
inline Class classFor(const ClassRecord* cls) {
  return reinterpret_cast<Class>(const_cast<ClassRecord*>(cls));
}
inline ProtocolRecord* record(Protocol* protocol) {
  return reinterpret_cast<ProtocolRecord*>(protocol);
}
/// The first word of an object, which is no message and asks no lock.
inline ClassRecord* classOf(const void* object) {
  return *static_cast<ClassRecord* const*>(object);
}

}  // namespace tinmac
