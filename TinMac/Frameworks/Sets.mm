#import "TinMac/Frameworks/Enumeration.h"
#import "TinMac/Frameworks/Objects.h"

@interface NSSet () {
 @public
  std::vector<id> elements;
}
@end

namespace tinmac {

namespace {

void add(NSSet* set, id element) {
  if (element == nil) trap("nil cannot be an element", "NSSet");
  if (![set containsObject:element]) set->elements.push_back([element retain]);
}

}  // namespace

std::span<const id> elementsOf(NSSet* set) {
  expectKind(set, [NSSet class], "elementsOf");
  return set->elements;
}

}  // namespace tinmac

using namespace tinmac;

@implementation NSSet

+ (id)set {
  return [[[self alloc] init] autorelease];
}
+ (id)setWithObject:(id)object {
  NSSet* set = [self set];
  add(set, object);
  return set;
}
+ (id)setWithArray:(NSArray*)array {
  NSSet* set = [self set];
  for (const id element : elementsOf(array)) add(set, element);
  return set;
}
- (void)dealloc {
  releaseAll(elements);
  [super dealloc];
}

- (NSUInteger)count {
  return elements.size();
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
  if (!isKind(other, [NSSet class])) return NO;
  if ([static_cast<NSSet*>(other) count] != elements.size()) return NO;
  for (const id element : elements) {
    if (![static_cast<NSSet*>(other) containsObject:element]) return NO;
  }
  return YES;
}
- (NSUInteger)hash {
  return elements.size();
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  if ([self class] == [NSSet class]) return [self retain];
  NSSet* copy = [[NSSet alloc] init];
  for (const id element : elements) add(copy, element);
  return copy;
}

@end

@implementation NSMutableSet
- (void)addObject:(id)object {
  add(self, object);
}
@end
