#include <string>

#include "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Enumeration.h"
#import "TinMac/Frameworks/Objects.h"

@interface NSArray () {
 @public
  std::vector<id> elements;
  /// Without the callbacks of CoreFoundation's types an array would not own its elements.
  bool cannotHold;
}
@end

TIN_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks = {};

namespace tinmac {

namespace {

id elementAt(NSArray* array, std::int64_t index, const char* function) {
  const auto count = static_cast<std::int64_t>(array->elements.size());
  if (index < 0 || index >= count) {
    trap("an index beyond the array's end",
         std::string(function) + ": " + std::to_string(index) + " of " + std::to_string(count));
  }
  return array->elements[static_cast<std::size_t>(index)];
}

void add(NSArray* array, id element, const char* function) {
  if (element == nil) trap("nil cannot be an element", function);
  if (array->cannotHold) trap("an array without callbacks was given an element", function);
  array->elements.push_back([element retain]);
}

void expectTypeCallBacks(const CFArrayCallBacks* callBacks, const char* function) {
  if (callBacks != &kCFTypeArrayCallBacks) trap("these callbacks are not built", function);
}

NSArray* arrayArgument(CFArrayRef array, const char* function) {
  expectKind((id)array, [NSArray class], function);
  return (NSArray*)array;
}

}  // namespace

NSMutableArray* makeArray() { return [[NSMutableArray alloc] init]; }

void append(NSMutableArray* array, id element) { add(array, element, "append"); }

std::span<const id> elementsOf(NSArray* array) {
  expectKind(array, [NSArray class], "elementsOf");
  return array->elements;
}

}  // namespace tinmac

using namespace tinmac;

@implementation NSArray

+ (id)array {
  return [[[self alloc] init] autorelease];
}
+ (id)arrayWithObjects:(const id[])objects count:(NSUInteger)count {
  NSArray* array = [[[self alloc] init] autorelease];
  for (const id object : std::span(objects, count)) {
    add(array, object, "+[NSArray arrayWithObjects:count:]");
  }
  return array;
}
- (void)dealloc {
  releaseAll(elements);
  [super dealloc];
}

- (NSUInteger)count {
  return elements.size();
}
- (id)objectAtIndex:(NSUInteger)index {
  return elementAt(self, static_cast<std::int64_t>(index), "-[NSArray objectAtIndex:]");
}
- (id)objectAtIndexedSubscript:(NSUInteger)index {
  return [self objectAtIndex:index];
}
- (id)firstObject {
  return elements.empty() ? nil : elements.front();
}
- (BOOL)containsObject:(id)object {
  return isAmong(elements, object);
}
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained[])buffer
                                    count:(NSUInteger)length {
  (void)buffer;
  (void)length;
  return enumerate(state, elements);
}
- (BOOL)isEqual:(id)other {
  return isKind(other, [NSArray class]) &&
         haveEqualElements(elements, elementsOf(static_cast<NSArray*>(other)));
}
- (NSUInteger)hash {
  return elements.size();
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  if ([self class] == [NSArray class]) return [self retain];
  NSArray* copy = [[NSArray alloc] init];
  for (const id element : elements) add(copy, element, "-[NSArray copy]");
  return copy;
}

@end

@implementation NSMutableArray
- (void)addObject:(id)object {
  add(self, object, "-[NSMutableArray addObject:]");
}
@end

TIN_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                                    const CFArrayCallBacks* callBacks) {
  expectDefaultAllocator(allocator, "CFArrayCreate");
  expectTypeCallBacks(callBacks, "CFArrayCreate");
  NSArray* array = [[NSArray alloc] init];
  for (const void* value : std::span(values, static_cast<std::size_t>(count))) {
    add(array, (id)value, "CFArrayCreate");
  }
  return (CFArrayRef)array;
}

TIN_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                  const CFArrayCallBacks* callBacks) {
  expectDefaultAllocator(allocator, "CFArrayCreateMutable");
  expectNumber<CFIndex>(capacity, 0, "CFArrayCreateMutable, capacity");
  if (callBacks != nullptr) expectTypeCallBacks(callBacks, "CFArrayCreateMutable");
  NSMutableArray* array = makeArray();
  array->cannotHold = callBacks == nullptr;
  return (CFMutableArrayRef)array;
}

TIN_EXPORT void CFArrayAppendValue(CFMutableArrayRef array, const void* value) {
  expectKind((id)array, [NSMutableArray class], "CFArrayAppendValue");
  add((NSArray*)array, (id)value, "CFArrayAppendValue");
}

TIN_EXPORT CFIndex CFArrayGetCount(CFArrayRef array) {
  return static_cast<CFIndex>(arrayArgument(array, "CFArrayGetCount")->elements.size());
}

TIN_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  NSArray* given = arrayArgument(array, "CFArrayGetValueAtIndex");
  return elementAt(given, index, "CFArrayGetValueAtIndex");
}

TIN_EXPORT void objc_enumerationMutation(id container) {
  (void)container;
  trap("a container was changed while a loop ran over it", "objc_enumerationMutation");
}
