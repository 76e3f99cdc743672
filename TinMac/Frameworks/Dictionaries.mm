#include <vector>

#include "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Enumeration.h"
#import "TinMac/Frameworks/Objects.h"

@interface NSDictionary () {
 @public
  std::vector<tinmac::Entry> entries;
}
@end

TIN_EXPORT const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {};
TIN_EXPORT const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {};

namespace tinmac {

namespace {

Entry* entryFor(NSDictionary* dictionary, id key) {
  for (Entry& entry : dictionary->entries) {
    if (entry.key == key || [entry.key isEqual:key]) return &entry;
  }
  return nullptr;
}

enum class Existing { Stays, IsReplaced };

void put(NSDictionary* dictionary, id key, id value, Existing existing, const char* function) {
  if (key == nil || value == nil) trap("nil cannot be in a dictionary", function);
  if (Entry* entry = entryFor(dictionary, key)) {
    if (existing == Existing::Stays) return;
    id before = entry->value;
    entry->value = [value retain];
    [before release];
    return;
  }
  dictionary->entries.push_back({[key retain], [value retain]});
}

void putAll(NSDictionary* dictionary, std::span<const void*> keys, const void** values,
            const char* function) {
  for (std::size_t index = 0; index < keys.size(); ++index) {
    put(dictionary, (id)keys[index], (id)values[index], Existing::Stays, function);
  }
}

void expectTypeCallBacks(const CFDictionaryKeyCallBacks* keys,
                         const CFDictionaryValueCallBacks* values, const char* function) {
  if (keys != &kCFTypeDictionaryKeyCallBacks || values != &kCFTypeDictionaryValueCallBacks) {
    trap("these callbacks are not built", function);
  }
}

NSDictionary* dictionaryArgument(CFDictionaryRef dictionary, const char* function) {
  expectKind((id)dictionary, [NSDictionary class], function);
  return (NSDictionary*)dictionary;
}

}  // namespace

NSMutableDictionary* makeDictionary() { return [[NSMutableDictionary alloc] init]; }

void set(NSMutableDictionary* dictionary, id key, id value) {
  put(dictionary, key, value, Existing::IsReplaced, "set");
}

void set(NSMutableDictionary* dictionary, std::string_view key, id value) {
  NSString* text = makeString(key);
  set(dictionary, text, value);
  [text release];
}

id valueFor(NSDictionary* dictionary, std::string_view key) {
  for (const Entry& entry : entriesOf(dictionary)) {
    if (isKind(entry.key, [NSString class]) && utf8(static_cast<NSString*>(entry.key)) == key) {
      return entry.value;
    }
  }
  return nil;
}

std::span<const Entry> entriesOf(NSDictionary* dictionary) {
  expectKind(dictionary, [NSDictionary class], "entriesOf");
  return dictionary->entries;
}

}  // namespace tinmac

using namespace tinmac;

@implementation NSDictionary

+ (id)dictionary {
  return [[[self alloc] init] autorelease];
}
+ (id)dictionaryWithObjects:(const id[])objects
                    forKeys:(const id<NSCopying>[])keys
                      count:(NSUInteger)count {
  NSDictionary* dictionary = [[[self alloc] init] autorelease];
  for (NSUInteger index = 0; index < count; ++index) {
    id key = [(id)keys[index] copy];
    put(dictionary, key, objects[index], Existing::IsReplaced,
        "+[NSDictionary dictionaryWithObjects:forKeys:count:]");
    [key release];
  }
  return dictionary;
}
- (void)dealloc {
  for (const Entry& entry : entries) {
    [entry.key release];
    [entry.value release];
  }
  [super dealloc];
}

- (NSUInteger)count {
  return entries.size();
}
- (id)objectForKey:(id)key {
  const Entry* entry = key == nil ? nullptr : entryFor(self, key);
  return entry == nullptr ? nil : entry->value;
}
- (id)objectForKeyedSubscript:(id)key {
  return [self objectForKey:key];
}
- (NSArray*)allKeys {
  NSMutableArray* keys = makeArray();
  for (const Entry& entry : entries) append(keys, entry.key);
  return autoreleased(keys);
}
/// The keys stand apart from the values only in a container of their own, which the pool keeps.
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained[])buffer
                                    count:(NSUInteger)length {
  if (state->state != 0) return 0;
  return [[self allKeys] countByEnumeratingWithState:state objects:buffer count:length];
}
- (BOOL)isEqual:(id)other {
  if (!isKind(other, [NSDictionary class])) return NO;
  if (entriesOf(static_cast<NSDictionary*>(other)).size() != entries.size()) return NO;
  for (const Entry& entry : entries) {
    if (![entry.value isEqual:[static_cast<NSDictionary*>(other) objectForKey:entry.key]])
      return NO;
  }
  return YES;
}
- (NSUInteger)hash {
  return entries.size();
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  if ([self class] == [NSDictionary class]) return [self retain];
  NSDictionary* copy = [[NSDictionary alloc] init];
  for (const Entry& entry : entries) {
    put(copy, entry.key, entry.value, Existing::Stays, "-[NSDictionary copy]");
  }
  return copy;
}

@end

@implementation NSMutableDictionary
- (void)setObject:(id)object forKey:(id<NSCopying>)key {
  id kept = [(id)key copy];
  put(self, kept, object, Existing::IsReplaced, "-[NSMutableDictionary setObject:forKey:]");
  [kept release];
}
- (void)setObject:(id)object forKeyedSubscript:(id<NSCopying>)key {
  [self setObject:object forKey:key];
}
@end

TIN_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys,
                                              const void** values, CFIndex count,
                                              const CFDictionaryKeyCallBacks* keyCallBacks,
                                              const CFDictionaryValueCallBacks* valueCallBacks) {
  expectDefaultAllocator(allocator, "CFDictionaryCreate");
  expectTypeCallBacks(keyCallBacks, valueCallBacks, "CFDictionaryCreate");
  NSDictionary* dictionary = [[NSDictionary alloc] init];
  putAll(dictionary, std::span(keys, static_cast<std::size_t>(count)), values,
         "CFDictionaryCreate");
  return (CFDictionaryRef)dictionary;
}

TIN_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keyCallBacks,
    const CFDictionaryValueCallBacks* valueCallBacks) {
  expectDefaultAllocator(allocator, "CFDictionaryCreateMutable");
  expectNumber<CFIndex>(capacity, 0, "CFDictionaryCreateMutable, capacity");
  expectTypeCallBacks(keyCallBacks, valueCallBacks, "CFDictionaryCreateMutable");
  return (CFMutableDictionaryRef)makeDictionary();
}

TIN_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key,
                                     const void* value) {
  expectKind((id)dictionary, [NSMutableDictionary class], "CFDictionarySetValue");
  put((NSDictionary*)dictionary, (id)key, (id)value, Existing::IsReplaced, "CFDictionarySetValue");
}

TIN_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
  return static_cast<CFIndex>(
      dictionaryArgument(dictionary, "CFDictionaryGetCount")->entries.size());
}

TIN_EXPORT const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
  NSDictionary* given = dictionaryArgument(dictionary, "CFDictionaryGetValue");
  return (const void*)[given objectForKey:(id)key];
}

TIN_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys,
                                             const void** values) {
  NSDictionary* given = dictionaryArgument(dictionary, "CFDictionaryGetKeysAndValues");
  for (const Entry& entry : given->entries) {
    if (keys != nullptr) *keys++ = entry.key;
    if (values != nullptr) *values++ = entry.value;
  }
}
