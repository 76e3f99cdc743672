#import <Foundation/Foundation.h>

#include <memory>

#include "Probe.h"

static std::string journal;

namespace {

template <char name>
struct Member {
  Member() { (journal += '+') += name; }
  ~Member() { (journal += '-') += name; }
};

}  // namespace

@interface ProbeParent : NSObject
@end
@implementation ProbeParent {
  Member<'a'> first;
  Member<'b'> second;
}
- (void)dealloc {
  journal += 'P';
}
@end

@interface ProbeChild : ProbeParent
@end
@implementation ProbeChild {
  Member<'c'> third;
  std::shared_ptr<int> shared;
}
- (instancetype)initWithShared:(std::shared_ptr<int>)value {
  self = [super init];
  if (self != nil) shared = std::move(value);
  return self;
}
- (void)dealloc {
  journal += 'C';
}
@end

PROBE(probeMembers) {
  journal.clear();
  const auto shared = std::make_shared<int>(5);
  @autoreleasepool {
    ProbeChild* child = [[ProbeChild alloc] initWithShared:shared];
    EXPECT(child != nil && journal == "+a+b+c" && shared.use_count() == 2);
    child = nil;
    EXPECT(journal == "+a+b+cCP-c-b-a" && shared.use_count() == 1);
  }
}

namespace {

__attribute__((noinline)) NSString* returned() {
  return [[NSString alloc] initWithUTF8String:"handed over"];
}

}  // namespace

/// Compiled as the program is, a function hands its result over without a pool.
PROBE(probeHandOver) {
  NSString* text = returned();
  EXPECT(CFGetRetainCount((__bridge CFTypeRef)text) == 1);
}

PROBE(probePools) {
  CFStringRef kept = nullptr;
  @autoreleasepool {
    @autoreleasepool {
      NSString* inner = [NSString stringWithUTF8String:"inner"];
      kept = (CFStringRef)CFBridgingRetain(inner);
      EXPECT(CFGetRetainCount(kept) >= 2);
    }
    EXPECT(CFGetRetainCount(kept) == 1);
  }
  CFRelease(kept);
}

PROBE(probeBlocks) {
  journal.clear();
  @autoreleasepool {
    const auto shared = std::make_shared<int>(1);
    __block int counter = 0;
    void (^count)(void) = nil;
    {
      NSString* text = [[NSString alloc] initWithUTF8String:"held"];
      Member<'m'> member;
      journal.clear();
      count = ^{
        (void)member;
        counter += static_cast<int>(text.length) + *shared;
      };
    }
    EXPECT(shared.use_count() == 2);
    count();
    count();
    EXPECT(counter == 10);
    void (^again)(void) = [count copy];
    EXPECT(again == count);
    NSArray* array = @[ count ];
    ((void (^)(void))array[0])();
    EXPECT(counter == 15);
    array = nil;
    again = nil;
    count = nil;
    EXPECT(counter == 15);
  }
  // The variable, its copy in the block on the stack, and the one in the block on the heap.
  EXPECT(journal == "-m-m-m");
}

PROBE(probeGlobalBlock) {
  int (^const seven)(void) = ^{
    return 7;
  };
  NSArray* array = @[ seven ];
  EXPECT(((int (^)(void))array.firstObject)() == 7);
}
