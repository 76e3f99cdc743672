#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Objects.h"

@interface NSNumber () {
 @public
  bool isReal;
  std::int64_t whole;
  double real;
}
@end

namespace tinmac {

NSNumber* makeInteger(std::int64_t value) {
  NSNumber* number = [[NSNumber alloc] init];
  number->whole = value;
  return number;
}

NSNumber* makeReal(double value) {
  NSNumber* number = [[NSNumber alloc] init];
  number->isReal = true;
  number->real = value;
  return number;
}

namespace {

template <class Value>
Value valueAt(const void* place) {
  Value value{};
  std::memcpy(&value, place, sizeof value);
  return value;
}

NSNumber* numberAt(CFNumberType type, const void* place) {
  switch (type) {
    case kCFNumberSInt8Type:
    case kCFNumberCharType:
      return makeInteger(valueAt<std::int8_t>(place));
    case kCFNumberSInt16Type:
    case kCFNumberShortType:
      return makeInteger(valueAt<std::int16_t>(place));
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
      return makeInteger(valueAt<std::int32_t>(place));
    case kCFNumberSInt64Type:
    case kCFNumberLongType:
    case kCFNumberLongLongType:
    case kCFNumberCFIndexType:
    case kCFNumberNSIntegerType:
      return makeInteger(valueAt<std::int64_t>(place));
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
      return makeReal(static_cast<double>(valueAt<float>(place)));
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
    case kCFNumberCGFloatType:
      return makeReal(valueAt<double>(place));
    default:
      trap("this type of number is not built", std::to_string(type));
  }
}

/// The nearest integer towards zero; beyond the range, its end.
std::int64_t truncated(double real) {
  constexpr double limit = 9223372036854775808.0;
  if (std::isnan(real)) return 0;
  if (real >= limit) return std::numeric_limits<std::int64_t>::max();
  if (real < -limit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(real);
}

bool isExactly(double real, std::int64_t whole) {
  constexpr double limit = 9223372036854775808.0;
  return real >= -limit && real < limit && static_cast<std::int64_t>(real) == whole &&
         std::trunc(real) == real;
}

template <class Value>
bool store(Value value, bool exact, void* place) {
  std::memcpy(place, &value, sizeof value);
  return exact;
}

template <class Integer>
bool storeInteger(NSNumber* number, void* place) {
  const bool isReal = number->isReal;
  const std::int64_t whole = isReal ? truncated(number->real) : number->whole;
  const auto narrow = static_cast<Integer>(whole);
  return store(narrow, narrow == whole && (!isReal || isExactly(number->real, whole)), place);
}

bool storeDouble(NSNumber* number, void* place) {
  if (number->isReal) return store(number->real, true, place);
  const auto real = static_cast<double>(number->whole);
  return store(real, isExactly(real, number->whole), place);
}

bool storeNumber(NSNumber* number, CFNumberType type, void* place) {
  switch (type) {
    case kCFNumberSInt8Type:
    case kCFNumberCharType:
      return storeInteger<std::int8_t>(number, place);
    case kCFNumberSInt16Type:
    case kCFNumberShortType:
      return storeInteger<std::int16_t>(number, place);
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
      return storeInteger<std::int32_t>(number, place);
    case kCFNumberSInt64Type:
    case kCFNumberLongType:
    case kCFNumberLongLongType:
    case kCFNumberCFIndexType:
    case kCFNumberNSIntegerType:
      return storeInteger<std::int64_t>(number, place);
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
    case kCFNumberCGFloatType:
      return storeDouble(number, place);
    default:
      trap("this type of number is not built", std::to_string(type));
  }
}

/// A Boolean is a number to Foundation, and a type of its own to CoreFoundation.
NSNumber* numberArgument(CFNumberRef number, const char* function) {
  expectKind((id)number, [NSNumber class], function);
  if (isBoolean((id)number)) trap("a Boolean was passed as a number", function);
  return (NSNumber*)number;
}

}  // namespace

}  // namespace tinmac

using namespace tinmac;

@implementation NSValue
@end

@implementation NSNumber

+ (NSNumber*)numberWithBool:(BOOL)value {
  return booleanObject(value);
}
+ (NSNumber*)numberWithInt:(int)value {
  return autoreleased(makeInteger(value));
}
+ (NSNumber*)numberWithInteger:(NSInteger)value {
  return autoreleased(makeInteger(value));
}
+ (NSNumber*)numberWithLongLong:(long long)value {
  return autoreleased(makeInteger(value));
}
+ (NSNumber*)numberWithDouble:(double)value {
  return autoreleased(makeReal(value));
}

- (BOOL)boolValue {
  return isReal ? real != 0 : whole != 0;
}
- (int)intValue {
  return static_cast<int>([self longLongValue]);
}
- (NSInteger)integerValue {
  return [self longLongValue];
}
- (long long)longLongValue {
  return isReal ? truncated(real) : whole;
}
- (double)doubleValue {
  return isReal ? real : static_cast<double>(whole);
}

- (BOOL)isEqual:(id)other {
  if (!isKind(other, [NSNumber class])) return NO;
  return [self isEqualToNumber:static_cast<NSNumber*>(other)];
}
- (BOOL)isEqualToNumber:(NSNumber*)other {
  return [self doubleValue] == [other doubleValue] && [self longLongValue] == [other longLongValue];
}
- (NSUInteger)hash {
  return static_cast<NSUInteger>([self longLongValue]);
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return [self retain];
}

@end

TIN_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type,
                                      const void* place) {
  expectDefaultAllocator(allocator, "CFNumberCreate");
  expectPlace(place, "CFNumberCreate");
  return (CFNumberRef)numberAt(type, place);
}

TIN_EXPORT Boolean CFNumberIsFloatType(CFNumberRef number) {
  return numberArgument(number, "CFNumberIsFloatType")->isReal;
}

TIN_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* place) {
  NSNumber* given = numberArgument(number, "CFNumberGetValue");
  expectPlace(place, "CFNumberGetValue");
  return storeNumber(given, type, place);
}
