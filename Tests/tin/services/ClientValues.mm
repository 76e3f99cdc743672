#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include "Tests/tin/objects/Probe.h"

// A client calls these beside its connection.

namespace {

id json(const char* text) {
  return [NSJSONSerialization JSONObjectWithData:[@(text) dataUsingEncoding:NSUTF8StringEncoding]
                                         options:0
                                           error:nil];
}

bool isOrder(NSString* first, NSString* second, NSComparisonResult order) {
  return [first compare:second] == order;
}

NSString* medium(double seconds) {
  return [NSDateFormatter
      localizedStringFromDate:[NSDate dateWithTimeIntervalSinceReferenceDate:seconds]
                    dateStyle:NSDateFormatterMediumStyle
                    timeStyle:NSDateFormatterMediumStyle];
}

}  // namespace

PROBE(probeFormats) {
  @autoreleasepool {
    id nothing = nil;
    const auto is = [](NSString* text, const char* expected) { return [text isEqual:@(expected)]; };
    EXPECT((is([NSString stringWithFormat:@"%@ %% %@", @"a", @5], "a % 5")));
    EXPECT((is([NSString stringWithFormat:@"%@ %@ %@", @YES, @2.5, nothing], "1 2.5 (null)")));
    EXPECT((is([NSString stringWithFormat:@"%@", [NSNull null]], "<null>")));
    EXPECT((is([NSString stringWithFormat:@"%-6s|%6s|", "ab", "cd"], "ab    |    cd|")));
    EXPECT((is([NSString stringWithFormat:@"%d %u %x", -1, 7, 255], "-1 7 ff")));
    EXPECT((is([NSString stringWithFormat:@"%ld %llu", -5L, 18446744073709551615ULL],
               "-5 18446744073709551615")));
    EXPECT((is([NSString stringWithFormat:@"%02d:%.3s", 7, "abcdef"], "07:abc")));
  }
}
PROBE(probeTexts) {
  @autoreleasepool {
    EXPECT([[@"a" stringByAppendingString:@"ü"] isEqual:@"aü"]);
    EXPECT([@"ü" dataUsingEncoding:NSUTF8StringEncoding].length == 2);
    EXPECT(@" 42 percent".integerValue == 42 && @"-7".integerValue == -7);
    EXPECT(@"much".integerValue == 0 && @"".integerValue == 0);
    EXPECT(@"99999999999999999999".integerValue == NSIntegerMax);
    EXPECT(isOrder(@"a", @"b", NSOrderedAscending) && isOrder(@"b", @"a", NSOrderedDescending));
    EXPECT(isOrder(@"a", @"a", NSOrderedSame) && isOrder(@"a", @"ab", NSOrderedAscending));
    NSArray* sorted = [@[ @"c", @"a", @"b" ] sortedArrayUsingSelector:@selector(compare:)];
    EXPECT([sorted isEqual:(@[ @"a", @"b", @"c" ])]);
    EXPECT(([NSSet setWithObjects:@1, @2, @1, nil].count == 2));
  }
}
PROBE(probeJson) {
  @autoreleasepool {
    NSDictionary* read = json(" {\"a\" : [1, -2.5e1, true, null, \"x\\n\\u00fc\\ud83d\\ude00\"]} ");
    NSArray* list = read[@"a"];
    EXPECT(read.count == 1 && list.count == 5);
    EXPECT([list[0] isEqual:@1] && [list[1] isEqual:@(-25.0)]);
    EXPECT(list[2] == (id)kCFBooleanTrue && list[3] == [NSNull null]);
    EXPECT([list[4] isEqual:@"x\nü😀"]);
    EXPECT([json("[]") isEqual:@[]] && [json("{}") isEqual:@{}]);
    for (const char* wrong :
         {"", "5", "\"text\"", "[1", "[1,]", "{\"a\" 1}", "{1:2}", "[1] 2", "[\"\x01\"]", "[nul]",
          "[\"\\q\"]", "[\"\\ud83dx\"]", "[+1]", "[.5]", "[1e]", "{\"a\":1,}"}) {
      EXPECT(json(wrong) == nil);
    }
    NSError* error = nil;
    id none = [NSJSONSerialization JSONObjectWithData:[NSData data] options:0 error:&error];
    EXPECT(none == nil && error.code == 3840 && [error.domain isEqual:NSCocoaErrorDomain]);
  }
}
PROBE(probeDates) {
  @autoreleasepool {
    EXPECT([medium(0) isEqual:@"Jan 1, 2001 at 12:00:00\u202fAM"]);
    // 25 years with six leap days between them, and a time that is cut off, not rounded.
    EXPECT([medium(9131 * 86400.0 + 12 * 3600 + 7.9) isEqual:@"Jan 1, 2026 at 12:00:07\u202fPM"]);
    EXPECT([medium(-1) isEqual:@"Dec 31, 2000 at 11:59:59\u202fPM"]);
    EXPECT([medium(5 * 86400.0 + 13 * 3600) isEqual:@"Jan 6, 2001 at 1:00:00\u202fPM"]);
    EXPECT(NSDate.distantPast.timeIntervalSinceReferenceDate == -63114076800.0);
    EXPECT([NSDate.distantPast isEqualToDate:NSDate.distantPast]);
  }
}
PROBE(probeSemaphore) {
  dispatch_semaphore_t semaphore = dispatch_semaphore_create(1);
  EXPECT(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_FOREVER) == 0);
  EXPECT(dispatch_semaphore_signal(semaphore) == 0);
  EXPECT(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_FOREVER) == 0);
}
