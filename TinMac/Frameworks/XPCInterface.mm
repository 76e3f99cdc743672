#import "TinMac/Frameworks/XPCInterface.h"

#include <algorithm>
#include <string>
#include <vector>

#import "TinMac/Frameworks/Protocols.h"
#import "TinMac/Frameworks/Runtime.h"
#include "TinMac/Frameworks/XPCTypes.h"

using namespace tinmac;

namespace {

struct ClassSetting {
  SEL selector;
  std::uint32_t argument;
  bool ofReply;
  std::vector<const char*> classes;

  [[nodiscard]] bool isForSameArgument(const ClassSetting& other) const {
    return selector == other.selector && argument == other.argument && ofReply == other.ofReply;
  }
};

[[noreturn]] void refuse(const std::string& reason, SEL selector) {
  raise("NSInvalidArgumentException", reason + ": " + nameOf(selector));
}

/// Raises unless the protocol's method has an object at this place.
void expectObjectArgument(Protocol* protocol, const ClassSetting& setting) {
  const char* types = extendedTypes(protocol, setting.selector);
  if (types == nullptr) refuse("the interface's protocol has no such method", setting.selector);
  Signature signature = methodSignature(types);
  if (setting.ofReply) {
    const ArgumentType* block = signature.replyBlock();
    if (block == nullptr) refuse("the method has no reply", setting.selector);
    signature = blockSignature(block->block);
  }
  if (setting.argument >= signature.arguments.size()) {
    refuse("the method has no argument at this index", setting.selector);
  }
  if (signature.arguments[setting.argument].kind != objectKind) {
    refuse("the argument at this index is no object", setting.selector);
  }
}

bool isOneOf(id value, const std::vector<const char*>& classes) {
  return std::ranges::any_of(classes, [&](const char* name) {
    const ClassRecord* allowed = classNamed(name);
    return allowed != nullptr && isBelow(classOf(value), allowed);
  });
}

/// The details of an error stand for themselves: no setting has to name their dictionary.
bool holdsOnly(id value, const std::vector<const char*>& classes) {
  const auto each = [&](id element) {
    return isOneOf(element, classes) && holdsOnly(element, classes);
  };
  if (isKind(value, [NSArray class])) {
    return std::ranges::all_of(elementsOf(static_cast<NSArray*>(value)), each);
  }
  const id entries = isKind(value, [NSError class]) ? [(NSError*)value userInfo] : value;
  if (!isKind(entries, [NSDictionary class])) return true;
  return std::ranges::all_of(entriesOf(static_cast<NSDictionary*>(entries)),
                             [&](const Entry& entry) { return each(entry.value); });
}

std::vector<const char*> namesOf(NSSet* classes, SEL selector) {
  std::vector<const char*> names;
  for (const id cls : elementsOf(classes)) {
    if (!object_isClass(cls)) refuse("an allowed class is no class", selector);
    names.push_back(className(record((Class)cls)));
  }
  return names;
}

}  // namespace

@implementation NSXPCInterface {
  Protocol* described;
  std::vector<ClassSetting> settings;
}

+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol {
  if (protocol == nil) raise("NSInvalidArgumentException", "an interface needs a protocol");
  NSXPCInterface* interface = [[self alloc] init];
  interface->described = protocol;
  return autoreleased(interface);
}

- (Protocol*)protocol {
  return described;
}

- (void)setClasses:(NSSet<Class>*)classes
       forSelector:(SEL)selector
     argumentIndex:(NSUInteger)index
           ofReply:(BOOL)ofReply {
  expectKind(classes, [NSSet class], "setClasses:forSelector:argumentIndex:ofReply:");
  ClassSetting setting{.selector = selector,
                       .argument = static_cast<std::uint32_t>(index),
                       .ofReply = ofReply != NO,
                       .classes = namesOf(classes, selector)};
  expectObjectArgument(described, setting);
  std::erase_if(settings,
                [&](const ClassSetting& earlier) { return earlier.isForSameArgument(setting); });
  settings.push_back(std::move(setting));
}

- (BOOL)allows:(id)value
     inReplyTo:(SEL)selector
      argument:(std::uint32_t)index
      declared:(std::string_view)className {
  if (value == nil) return YES;
  const ClassSetting wanted{
      .selector = selector, .argument = index, .ofReply = true, .classes = {}};
  for (const ClassSetting& setting : settings) {
    if (!setting.isForSameArgument(wanted)) continue;
    return isOneOf(value, setting.classes) && holdsOnly(value, setting.classes);
  }
  const ClassRecord* declared = classNamed(className);
  return className.empty() || (declared != nullptr && isBelow(classOf(value), declared));
}

- (void)tellReplyClassesTo:(TinConnection*)connection {
  for (const ClassSetting& setting : settings) {
    if (!setting.ofReply) continue;
    tinConnectionReplyClasses(connection, nameOf(setting.selector), setting.argument,
                              setting.classes.data(), setting.classes.size());
  }
}

@end
