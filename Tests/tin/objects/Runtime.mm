#import <Foundation/Foundation.h>
#import <objc/runtime.h>

#include "Probe.h"

namespace {

struct Large {
  double values[8];
};

struct Pair {
  double first;
  double second;
};

}  // namespace

@protocol ProbeAbove
- (void)above:(void (^)(NSData*))reply;
@end
@protocol ProbeProtocol <ProbeAbove>
- (void)plain:(uint8_t)number;
@optional
- (void)optional;
@end

@interface ProbeBase : NSObject
- (int)number;
+ (int)classNumber;
@end
@implementation ProbeBase
- (int)number {
  return 1;
}
+ (int)classNumber {
  return 10;
}
@end

@interface ProbeDerived : ProbeBase <ProbeProtocol>
@end
@implementation ProbeDerived
- (int)number {
  return [super number] + 1;
}
+ (int)classNumber {
  return [super classNumber] + 1;
}
- (double)sum:(int)a
            b:(int)b
            c:(int)c
            d:(int)d
            e:(int)e
            f:(int)f
            g:(int)g
            h:(int)h
        reals:(double)r0
          and:(double)r1
          and:(double)r2
          and:(double)r3
          and:(double)r4
          and:(double)r5
          and:(double)r6
          and:(double)r7
          and:(double)r8 {
  return a + 2 * b + 3 * c + 4 * d + 5 * e + 6 * f + 7 * g + 8 * h + r0 + 10 * r1 + 100 * r2 +
         1e3 * r3 + 1e4 * r4 + 1e5 * r5 + 1e6 * r6 + 1e7 * r7 + 1e8 * r8;
}
- (Large)large:(double)first {
  return {{first, 2, 3, 4, 5, 6, 7, 8}};
}
- (Pair)pair {
  return {1, 2};
}
- (void)plain:(uint8_t)number {
  (void)number;
}
- (void)above:(void (^)(NSData*))reply {
  reply(nil);
}
@end

@interface ProbeBase (Category)
- (int)added;
@end
@implementation ProbeBase (Category)
- (int)added {
  return 42;
}
@end

@interface NSObject (ProbeCategory)
- (int)addedToEverything;
@end
@implementation NSObject (ProbeCategory)
- (int)addedToEverything {
  return 7;
}
@end

PROBE(probeMessages) {
  @autoreleasepool {
    ProbeDerived* object = [[ProbeDerived alloc] init];
    EXPECT([object number] == 2 && [ProbeDerived classNumber] == 11);
    EXPECT([object sum:1
                     b:2
                     c:3
                     d:4
                     e:5
                     f:6
                     g:7
                     h:8
                 reals:1
                   and:2
                   and:3
                   and:4
                   and:5
                   and:6
                   and:7
                   and:8
                   and:9] == 204 + 987654321);
    const Large large = [object large:0.5];
    EXPECT(large.values[0] == 0.5 && large.values[7] == 8);
    EXPECT([object pair].second == 2);
    EXPECT([object added] == 42 && [object addedToEverything] == 7);
    EXPECT([@"text" addedToEverything] == 7);
    for (int round = 0; round < 1000; ++round) EXPECT([object number] == 2);
  }
}

PROBE(probeMessagesToNil) {
  ProbeDerived* nobody = nil;
  EXPECT([nobody number] == 0);
  const Pair pair = [nobody pair];
  EXPECT(pair.first == 0 && pair.second == 0);
  EXPECT([nobody large:3].values[0] == 0);
}

PROBE(probeReflection) {
  @autoreleasepool {
    Class cls = NSClassFromString(@"ProbeDerived");
    EXPECT(cls == [ProbeDerived class] && object_isClass(cls));
    EXPECT(object_isClass(object_getClass(cls)));
    ProbeDerived* object = [[ProbeDerived alloc] init];
    EXPECT(!object_isClass(object) && object_getClass(object) == cls);
    EXPECT(!object_isClass(@"text") && !object_isClass(nil));
    const SEL selector = sel_registerName("number");
    EXPECT(selector == @selector(number) && selector == NSSelectorFromString(@"number"));
    Method method = class_getInstanceMethod(cls, selector);
    EXPECT(method != nullptr && method_getName(method) == selector);
    EXPECT(((int (*)(id, SEL))method_getImplementation(method))(object, selector) == 2);
    EXPECT(class_getInstanceMethod(cls, @selector(classNumber)) == nullptr);
    EXPECT(class_getClassMethod(cls, @selector(classNumber)) != nullptr);
    EXPECT(class_getInstanceMethod(Nil, selector) == nullptr);
    EXPECT([object respondsToSelector:selector]);
    EXPECT(![object respondsToSelector:NSSelectorFromString(@"nobodyHasThis:")]);
    EXPECT(((int (*)(id, SEL))[object methodForSelector:selector])(object, selector) == 2);
    EXPECT(NSClassFromString(@"NobodyIsThis") == Nil);
    EXPECT(NSProtocolFromString(@"ProbeProtocol") == @protocol(ProbeProtocol));
    EXPECT(NSProtocolFromString(@"NobodyKeepsThis") == nil);
    EXPECT([object conformsToProtocol:@protocol(ProbeAbove)]);
    EXPECT(![object conformsToProtocol:@protocol(NSCopying)]);
    EXPECT([object isKindOfClass:[ProbeBase class]] && ![object isMemberOfClass:[ProbeBase class]]);
  }
}

static int tidied = 0;

namespace {

struct Tidy {
  ~Tidy() { ++tidied; }
};

void throwThrough(int depth) {
  const Tidy tidy;
  if (depth == 0) {
    NSString* const reason = [NSString stringWithUTF8String:"deep down"];
    @throw [[NSException alloc] initWithName:NSGenericException reason:reason userInfo:nil];
  }
  throwThrough(depth - 1);
}

}  // namespace

PROBE(probeExceptions) {
  @autoreleasepool {
    tidied = 0;
    bool finished = false;
    NSString* reason = nil;
    @try {
      @try {
        throwThrough(3);
      } @finally {
        finished = true;
      }
    } @catch (NSException* caught) {
      reason = caught.reason;
    }
    EXPECT(tidied == 4 && finished && [reason isEqual:@"deep down"]);

    // Each language's handlers let the other's exceptions pass.
    bool byCxx = false;
    try {
      @try {
        throw std::string("of C++");
      } @catch (NSException* caught) {
        reason = nil;
      }
    } catch (const std::string& caught) {
      byCxx = caught == "of C++";
    }
    EXPECT(byCxx && reason != nil);
    bool byAnything = false;
    try {
      throwThrough(0);
    } catch (const std::exception& caught) {
      byAnything = false;
    } catch (...) {
      byAnything = true;
    }
    EXPECT(byAnything);
  }
}
