#include <cstring>
#include <vector>

#include "TinMac/Frameworks/Arguments.h"
#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Objects.h"

@interface NSData () {
 @public
  std::vector<std::uint8_t> content;
}
@end

@interface NSDate () {
 @public
  double seconds;
}
@end

namespace tinmac {

NSData* makeData(std::span<const std::uint8_t> bytes) {
  NSData* data = [[NSData alloc] init];
  data->content.assign(bytes.begin(), bytes.end());
  return data;
}

std::span<const std::uint8_t> bytesOf(NSData* data) {
  expectKind(data, [NSData class], "bytesOf");
  return data->content;
}

NSDate* makeDate(double secondsSince2001) {
  NSDate* date = [[NSDate alloc] init];
  date->seconds = secondsSince2001;
  return date;
}

namespace {

NSData* checkedData(const void* bytes, std::int64_t length, const char* function) {
  if (length < 0) trap("a negative length", function);
  if (bytes == nullptr && length > 0) trap("a null pointer was passed", function);
  return makeData({static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(length)});
}

}  // namespace

}  // namespace tinmac

using namespace tinmac;

@implementation NSData

+ (id)data {
  return autoreleased(makeData({}));
}
+ (id)dataWithBytes:(const void*)bytes length:(NSUInteger)length {
  return autoreleased(
      checkedData(bytes, static_cast<std::int64_t>(length), "+[NSData dataWithBytes:length:]"));
}

- (NSUInteger)length {
  return content.size();
}
- (const void*)bytes {
  return content.data();
}
- (BOOL)isEqual:(id)other {
  return isKind(other, [NSData class]) && content == static_cast<NSData*>(other)->content;
}
- (NSUInteger)hash {
  return content.size();
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return [self retain];
}

@end

TIN_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length) {
  expectDefaultAllocator(allocator, "CFDataCreate");
  return (CFDataRef)checkedData(bytes, length, "CFDataCreate");
}

TIN_EXPORT CFIndex CFDataGetLength(CFDataRef data) {
  expectKind((id)data, [NSData class], "CFDataGetLength");
  return static_cast<CFIndex>(((NSData*)data)->content.size());
}

/// May be null when there are no bytes.
TIN_EXPORT const UInt8* CFDataGetBytePtr(CFDataRef data) {
  expectKind((id)data, [NSData class], "CFDataGetBytePtr");
  return ((NSData*)data)->content.data();
}

@implementation NSDate

+ (id)dateWithTimeIntervalSinceReferenceDate:(NSTimeInterval)interval {
  return autoreleased(makeDate(interval));
}
+ (id)date {
  return autoreleased(makeDate(CFAbsoluteTimeGetCurrent()));
}

- (NSTimeInterval)timeIntervalSinceReferenceDate {
  return seconds;
}
- (BOOL)isEqual:(id)other {
  return isKind(other, [NSDate class]) && seconds == static_cast<NSDate*>(other)->seconds;
}
- (NSUInteger)hash {
  NSUInteger bits = 0;
  std::memcpy(&bits, &seconds, sizeof bits);
  return bits;
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return [self retain];
}

@end

TIN_EXPORT CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at) {
  expectDefaultAllocator(allocator, "CFDateCreate");
  return (CFDateRef)makeDate(at);
}

TIN_EXPORT CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) {
  expectKind((id)date, [NSDate class], "CFDateGetAbsoluteTime");
  return ((NSDate*)date)->seconds;
}

TIN_EXPORT const CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = 978307200;

TIN_EXPORT CFAbsoluteTime CFAbsoluteTimeGetCurrent(void) { return tinSecondsSince2001(); }
