#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#import "TinMac/Frameworks/Apple.h"
#include "TinMac/Frameworks/Below.h"

/// Marks a function of Apple's that the program may import. Everything else stays inside.
#define TIN_EXPORT extern "C" __attribute__((visibility("default")))

/// Objects of the frameworks. Objective-C here has manual reference counting; a CoreFoundation
/// object is the very Objective-C object, so either is cast to the other. A class of our own is
///
///     @interface TinCode : NSObject {
///      @public
///       uint64_t handle;
///     }
///     @end
///     @implementation TinCode
///     - (void)dealloc {
///       tinCodeRelease(handle);
///       [super dealloc];
///     }
///     @end
///
/// made by [[TinCode alloc] init]; C++ members are constructed and destroyed by themselves. Ivars
/// of Apple's classes stand in their @implementation. `make…` gives one reference that is the
/// caller's; what is merely returned is borrowed. Any thread, unless a function says otherwise.
namespace tinmac {

/// Ends the process: the program broke a rule.
[[noreturn]] void trap(const char* rule, std::string_view detail);
/// Throws an NSException through the program.
[[noreturn]] void raise(std::string_view name, std::string_view reason);

/// Hands a reference over to this thread's pool, and the object back.
template <class Object>
Object* autoreleased(Object* object) {
  return static_cast<Object*>([object autorelease]);
}
/// Runs at tinSettleBooks, in the order given, before the main thread's pools are emptied. Called
/// before the program starts.
void onSettle(void (*release)());
/// The object is of the class or of one below it. False for nil.
bool isKind(id object, Class cls);
/// Traps naming the function unless the object is of the class; nil traps too.
void expectKind(id object, Class cls, const char* function);

// --- Texts. UTF-8, in which a lone surrogate may stand as three bytes; other bytes trap.

NSString* makeString(std::string_view text);
/// Valid as long as the string, which is never changed.
std::string_view utf8(NSString* string);

// --- Scalars

/// One of the two Booleans; they need no owner.
NSNumber* booleanObject(bool value);
bool isBoolean(id object);
NSNumber* makeInteger(std::int64_t value);
NSNumber* makeReal(double value);
NSDate* makeDate(double secondsSince2001);
NSData* makeData(std::span<const std::uint8_t> bytes);
std::span<const std::uint8_t> bytesOf(NSData* data);

// --- Containers. They retain what they hold.

NSMutableArray* makeArray();
void append(NSMutableArray* array, id element);
std::span<const id> elementsOf(NSArray* array);
std::span<const id> elementsOf(NSSet* set);

NSMutableDictionary* makeDictionary();
/// Takes the place of an equal key's value.
void set(NSMutableDictionary* dictionary, id key, id value);
void set(NSMutableDictionary* dictionary, std::string_view key, id value);
/// Nil: no such key.
id valueFor(NSDictionary* dictionary, std::string_view key);
struct Entry {
  id key;
  id value;
};
/// In the order of their first setting.
std::span<const Entry> entriesOf(NSDictionary* dictionary);

/// `details` may be nil.
NSError* makeError(std::string_view domain, std::int64_t code, NSDictionary* details);

}  // namespace tinmac
