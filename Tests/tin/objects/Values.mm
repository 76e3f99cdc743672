#import <Foundation/Foundation.h>

#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "Probe.h"

namespace {

CFStringRef created(std::string_view bytes, CFStringEncoding encoding) {
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                                 static_cast<CFIndex>(bytes.size()), encoding, false);
}

struct Bytes {
  CFIndex converted;
  std::string text;
};

Bytes bytesOf(CFStringRef string, CFRange range, UInt8 lossByte, CFIndex capacity = 64) {
  std::array<UInt8, 64> buffer{};
  CFIndex used = -1;
  const CFIndex converted = CFStringGetBytes(string, range, kCFStringEncodingUTF8, lossByte, false,
                                             buffer.data(), capacity, &used);
  return {converted, std::string(buffer.begin(), buffer.begin() + used)};
}

}  // namespace

PROBE(probeTextLengths) {
  CFStringRef text = created("Gr\u00FC\u00DFe \u2014 \U0001F50B", kCFStringEncodingUTF8);
  EXPECT(CFStringGetLength(text) == 10);
  const Bytes whole = bytesOf(text, CFRangeMake(0, 10), 0);
  EXPECT(whole.converted == 10 && whole.text == "Gr\u00FC\u00DFe \u2014 \U0001F50B");
  EXPECT(bytesOf(text, CFRangeMake(2, 2), 0).text == "\u00FC\u00DF");
  CFIndex needed = -1;
  EXPECT(CFStringGetBytes(text, CFRangeMake(0, 10), kCFStringEncodingUTF8, 0, false, nullptr, 0,
                          &needed) == 10);
  EXPECT(needed == 16);
  // A character is not cut.
  const Bytes cut = bytesOf(text, CFRangeMake(0, 10), 0, 3);
  EXPECT(cut.converted == 2 && cut.text == "Gr");
  CFRelease(text);
}

PROBE(probeLoneSurrogates) {
  const std::array<UniChar, 3> units{'a', 0xD800, 'b'};
  CFStringRef text = CFStringCreateWithCharacters(kCFAllocatorDefault, units.data(), 3);
  EXPECT(CFStringGetLength(text) == 3);
  const Bytes stopped = bytesOf(text, CFRangeMake(0, 3), 0);
  EXPECT(stopped.converted == 1 && stopped.text == "a");
  const Bytes replaced = bytesOf(text, CFRangeMake(0, 3), '?');
  EXPECT(replaced.converted == 3 && replaced.text == "a?b");
  // Half of a pair, cut by the range.
  CFStringRef pair = created("\U0001F50B", kCFStringEncodingUTF8);
  EXPECT(bytesOf(pair, CFRangeMake(0, 1), 0).converted == 0);
  EXPECT(bytesOf(pair, CFRangeMake(0, 2), 0).converted == 2);
  CFRelease(pair);
  CFRelease(text);
}

PROBE(probeTextEncodings) {
  for (const char* invalid : {"caf\xE9", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80"}) {
    EXPECT(created(invalid, kCFStringEncodingUTF8) == nullptr);
  }
  CFStringRef latin = created("caf\xE9", kCFStringEncodingISOLatin1);
  EXPECT(CFEqual(latin, CFSTR("caf\u00E9")));
  EXPECT(CFHash(latin) == CFHash(CFSTR("caf\u00E9")));
  CFRelease(latin);
  CFStringRef withZero = created(std::string_view("a\0b", 3), kCFStringEncodingUTF8);
  EXPECT(CFStringGetLength(withZero) == 3);
  EXPECT(bytesOf(withZero, CFRangeMake(0, 3), 0).text == std::string("a\0b", 3));
  CFRelease(withZero);
}

PROBE(probeConstantTexts) {
  @autoreleasepool {
    NSString* const constant = @"battery";
    EXPECT(constant.length == 7);
    EXPECT(std::string(constant.UTF8String) == "battery");
    EXPECT([@"\u00FC \U0001F50B" length] == 4);
    EXPECT([@"\u00FC" isEqualToString:[NSString stringWithUTF8String:"\u00FC"]]);
    EXPECT([constant class] != nil && [constant isKindOfClass:[NSString class]]);
    CFRetain((__bridge CFTypeRef)constant);
    CFRelease((__bridge CFTypeRef)constant);
    CFRelease((__bridge CFTypeRef)constant);
    EXPECT([constant characterAtIndex:0] == 'b');
  }
}

PROBE(probeNumbers) {
  const std::int64_t large = std::numeric_limits<std::int64_t>::max();
  CFNumberRef whole = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &large);
  std::int64_t read = 0;
  EXPECT(!CFNumberIsFloatType(whole));
  EXPECT(CFNumberGetValue(whole, kCFNumberSInt64Type, &read) && read == large);
  std::int32_t narrow = 0;
  EXPECT(!CFNumberGetValue(whole, kCFNumberSInt32Type, &narrow) && narrow == -1);
  double real = 0;
  EXPECT(!CFNumberGetValue(whole, kCFNumberDoubleType, &real) && real == 0x1p63);
  CFRelease(whole);

  const double eighty = 80;
  CFNumberRef exact = CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &eighty);
  EXPECT(CFNumberIsFloatType(exact));
  EXPECT(CFNumberGetValue(exact, kCFNumberSInt64Type, &read) && read == 80);
  CFRelease(exact);
  const double half = -2.5;
  CFNumberRef lossy = CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &half);
  EXPECT(!CFNumberGetValue(lossy, kCFNumberSInt64Type, &read) && read == -2);
  EXPECT(CFNumberGetValue(lossy, kCFNumberDoubleType, &real) && real == half);
  CFRelease(lossy);
}

PROBE(probeTypes) {
  EXPECT(CFGetTypeID(kCFBooleanTrue) == CFBooleanGetTypeID());
  EXPECT(CFBooleanGetTypeID() != CFNumberGetTypeID());
  EXPECT(CFBooleanGetValue(kCFBooleanTrue) && !CFBooleanGetValue(kCFBooleanFalse));
  CFRelease(kCFBooleanTrue);
  CFRelease(kCFBooleanTrue);
  EXPECT(CFBooleanGetValue(kCFBooleanTrue));
  @autoreleasepool {
    EXPECT((__bridge CFTypeRef) @YES == kCFBooleanTrue);
    EXPECT(CFGetTypeID((__bridge CFTypeRef) @1) == CFNumberGetTypeID());
    EXPECT(CFGetTypeID((__bridge CFTypeRef) @[]) == CFArrayGetTypeID());
    EXPECT(CFGetTypeID((__bridge CFTypeRef) @{}) == CFDictionaryGetTypeID());
    EXPECT(CFGetTypeID((__bridge CFTypeRef)[NSData data]) == CFDataGetTypeID());
    EXPECT(CFGetTypeID((__bridge CFTypeRef)[NSDate date]) == CFDateGetTypeID());
    EXPECT(CFGetTypeID(CFSTR("text")) == CFStringGetTypeID());
    EXPECT(CFGetTypeID(kCFNull) != CFStringGetTypeID());
  }
}

PROBE(probeDictionaries) {
  CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  CFStringRef key = created("key", kCFStringEncodingUTF8);
  CFDictionarySetValue(dictionary, key, kCFBooleanTrue);
  CFDictionarySetValue(dictionary, CFSTR("key"), kCFBooleanFalse);
  EXPECT(CFDictionaryGetCount(dictionary) == 1);
  EXPECT(CFDictionaryGetValue(dictionary, CFSTR("key")) == kCFBooleanFalse);
  EXPECT(CFGetRetainCount(key) == 2);
  const void* foundKey = nullptr;
  const void* foundValue = nullptr;
  CFDictionaryGetKeysAndValues(dictionary, &foundKey, &foundValue);
  EXPECT(foundKey == key && foundValue == kCFBooleanFalse);
  CFRelease(dictionary);
  EXPECT(CFGetRetainCount(key) == 1);
  CFRelease(key);
}

PROBE(probeContainers) {
  @autoreleasepool {
    NSMutableArray* array = [NSMutableArray array];
    for (int number = 0; number < 5; ++number) [array addObject:@(number)];
    NSInteger sum = 0;
    for (NSNumber* each in array) sum += each.integerValue;
    EXPECT(sum == 10 && array.count == 5 && [array[4] isEqual:@4]);
    NSArray* copy = [array copy];
    [array addObject:@5];
    EXPECT(copy.count == 5 && ![copy isEqual:array]);

    NSMutableSet* classes = [NSMutableSet set];
    [classes addObject:[NSData class]];
    [classes addObject:[NSData class]];
    [classes addObject:[NSError class]];
    EXPECT(classes.count == 2 && [classes containsObject:[NSError class]]);

    NSDictionary* nested = @{@"list" : @[ @1, @2.5, @YES ], @"data" : [NSData data]};
    NSUInteger letters = 0;
    for (NSString* key in nested) letters += key.length;
    EXPECT(letters == 8);
    EXPECT([nested isEqual:(@{@"data" : [NSData data], @"list" : @[ @1, @2.5, @YES ]})]);
  }
}

PROBE(probeErrors) {
  @autoreleasepool {
    NSError* bare = [NSError errorWithDomain:@"com.korvel" code:-7 userInfo:nil];
    EXPECT([bare.localizedDescription
        isEqual:@"The operation couldn\u2019t be completed. (com.korvel error -7.)"]);
    EXPECT(bare.userInfo.count == 0 && bare.code == -7);
    NSMutableDictionary* details = [NSMutableDictionary dictionary];
    details[NSLocalizedDescriptionKey] = @"cannot tell";
    NSError* told = [NSError errorWithDomain:@"d" code:1 userInfo:details];
    details[NSLocalizedDescriptionKey] = @"changed later";
    EXPECT([told.localizedDescription isEqual:@"cannot tell"]);
  }
}

PROBE(probeBundle) {
  @autoreleasepool {
    NSDictionary* told = [NSBundle.mainBundle objectForInfoDictionaryKey:@"everything"];
    EXPECT([told isEqual:(@{
                   @"array" : @[ @-5, NSNull.null, @"\u00FC" ],
                   @"boolean" : @YES,
                   @"data" : [NSData dataWithBytes:"\x00\xFF" length:2],
                   @"date" : [NSDate dateWithTimeIntervalSinceReferenceDate:-1.5],
                   @"real" : @14400.0,
                 })]);
    EXPECT(CFGetTypeID((__bridge CFTypeRef)told[@"boolean"]) == CFBooleanGetTypeID());
    EXPECT(CFNumberIsFloatType((__bridge CFNumberRef)told[@"real"]));
    NSError* error = [NSBundle.mainBundle objectForInfoDictionaryKey:@"error"];
    EXPECT([error isKindOfClass:[NSError class]] && error.code == 4);
    EXPECT([error.domain isEqual:@"domain"] && [error.userInfo[@"why"] isEqual:@"because"]);
    EXPECT([NSBundle.mainBundle objectForInfoDictionaryKey:@"missing"] == nil);
    EXPECT(CFAbsoluteTimeGetCurrent() == 789.5);
  }
}
