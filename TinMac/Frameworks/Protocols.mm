#import "TinMac/Frameworks/Protocols.h"

#include <map>
#include <string>
#include <string_view>

#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Runtime.h"

namespace tinmac {

namespace {

os_unfair_lock protocolsLock = OS_UNFAIR_LOCK_INIT;

std::map<std::string_view, ProtocolRecord*>& protocols() {
  static auto& all = *new std::map<std::string_view, ProtocolRecord*>;
  return all;
}

bool hasExtendedTypes(const ProtocolRecord& protocol) {
  constexpr std::size_t needed =
      offsetof(ProtocolRecord, extendedTypes) + sizeof protocol.extendedTypes;
  return protocol.size >= needed && protocol.extendedTypes != nullptr;
}

const char* ownExtendedTypes(const ProtocolRecord& protocol, SEL selector) {
  if (!hasExtendedTypes(protocol)) return nullptr;
  std::size_t before = 0;
  for (const MethodListRecord* list :
       {protocol.instanceMethods, protocol.classMethods, protocol.optionalInstanceMethods,
        protocol.optionalClassMethods}) {
    for (std::size_t index = 0; index < methodCount(list); ++index) {
      if (std::string_view(methodAt(list, index).name) == nameOf(selector)) {
        return protocol.extendedTypes[before + index];
      }
    }
    before += methodCount(list);
  }
  return nullptr;
}

const char* typesIn(const ProtocolRecord& protocol, SEL selector) {
  if (const char* types = ownExtendedTypes(protocol, selector)) return types;
  const ProtocolListRecord* above = protocol.protocols;
  for (std::size_t index = 0; above != nullptr && index < above->count; ++index) {
    if (const char* types = typesIn(*above->protocols[index], selector)) return types;
  }
  return nullptr;
}

}  // namespace

void addProtocols(const TinImage& image) {
  const TinSection* section = sectionNamed(image, "__objc_protolist");
  if (section == nullptr) return;
  auto* const* list = static_cast<ProtocolRecord* const*>(section->address);
  for (std::size_t index = 0; index < section->size / sizeof(ProtocolRecord*); ++index) {
    list[index]->isa = classFor(classNamed("Protocol"));
    const Locked locked(protocolsLock);
    // Two images may describe one protocol; the first one's is everybody's.
    protocols().emplace(list[index]->name, list[index]);
  }
}

bool conforms(const ProtocolListRecord* list, const ProtocolRecord* protocol) {
  for (std::size_t index = 0; list != nullptr && index < list->count; ++index) {
    const ProtocolRecord& taken = *list->protocols[index];
    if (std::string_view(taken.name) == protocol->name) return true;
    if (conforms(taken.protocols, protocol)) return true;
  }
  return false;
}

const char* protocolName(Protocol* protocol) { return record(protocol)->name; }

const char* extendedTypes(Protocol* protocol, SEL selector) {
  return typesIn(*record(protocol), selector);
}

}  // namespace tinmac

/// Its one use is that a protocol is an object, which can be retained and asked for its class.
@implementation Protocol
@end

TIN_EXPORT Protocol* NSProtocolFromString(NSString* name) {
  using namespace tinmac;
  if (name == nil) return nil;
  const Locked locked(protocolsLock);
  const auto found = protocols().find(utf8(name));
  return found == protocols().end() ? nil : reinterpret_cast<Protocol*>(found->second);
}
