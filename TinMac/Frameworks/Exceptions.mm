#include <cxxabi.h>

#include <string>
#include <typeinfo>

#import "TinMac/Frameworks/Runtime.h"

@implementation NSException

+ (void)raise:(NSExceptionName)name format:(NSString*)format, ... {
  if (tinmac::utf8(format).contains('%')) {
    tinmac::trap("an exception's format is not built", tinmac::utf8(format));
  }
  tinmac::raise(tinmac::utf8(name), tinmac::utf8(format));
}
- (id)initWithName:(NSString*)givenName
            reason:(NSString*)givenReason
          userInfo:(NSDictionary*)givenDetails {
  name = [givenName retain];
  reason = [givenReason retain];
  userInfo = [givenDetails retain];
  return self;
}
- (void)dealloc {
  [name release];
  [reason release];
  [userInfo release];
  [super dealloc];
}
- (NSString*)name {
  return name;
}
- (NSString*)reason {
  return reason;
}
- (NSDictionary*)userInfo {
  return userInfo;
}
- (void)raise {
  @throw self;
}

@end

namespace tinmac {

namespace {

/// The type of a thrown object, as the compiler writes it for each class that can be caught. The
/// unwinder takes it for a type of C++ and calls it through `table`.
struct ThrownType {
  void* const* table;
  const char* name;
  ClassRecord* cls;
};

}  // namespace

}  // namespace tinmac

using namespace tinmac;

extern "C" {
extern void* tinThrownTable[8] __asm("_objc_ehtype_vtable");
extern const ThrownType tinExceptionType __asm("_OBJC_EHTYPE_$_NSException");
}

namespace {

bool isThrownType(const void* type) {
  return static_cast<const ThrownType*>(type)->table == &tinThrownTable[2];
}

void nothing(const void*) {}
/// A pointer to an object is thrown, so a handler gets the object itself.
std::uint32_t isPointer(const void*) { return 1; }
std::uint32_t isFunction(const void*) { return 0; }
/// A handler for `handler` takes what was thrown as `thrown`.
std::uint32_t catches(const void* handler, const void* thrown, void** object, std::uint32_t) {
  (void)object;
  if (!isThrownType(thrown)) return 0;
  const ClassRecord* wanted = static_cast<const ThrownType*>(handler)->cls;
  return isBelow(static_cast<const ThrownType*>(thrown)->cls, wanted) ? 1 : 0;
}
std::uint32_t noBaseOfCxx(const void*, const void*, void**) { return 0; }

void letGo(void* thrown) { release(*static_cast<id*>(thrown)); }

}  // namespace

extern "C" {

// Two words as before each table of virtual functions, then the functions in the order in which the
// C++ runtime declares them for its types.
__attribute__((visibility("default"))) void* tinThrownTable[8] = {
    nullptr,
    nullptr,
    reinterpret_cast<void*>(nothing),
    reinterpret_cast<void*>(nothing),
    reinterpret_cast<void*>(isPointer),
    reinterpret_cast<void*>(isFunction),
    reinterpret_cast<void*>(catches),
    reinterpret_cast<void*>(noBaseOfCxx),
};
}

TIN_EXPORT void objc_exception_throw(id object) {
  expectKind(object, [NSException class], "@throw");
  auto* thrown = static_cast<id*>(abi::__cxa_allocate_exception(sizeof(id)));
  *thrown = tinmac::retain(object);
  auto* type = const_cast<ThrownType*>(&tinExceptionType);
  abi::__cxa_throw(thrown, reinterpret_cast<std::type_info*>(type), letGo);
}

TIN_EXPORT void objc_exception_rethrow(void) { abi::__cxa_rethrow(); }
TIN_EXPORT id objc_begin_catch(void* exception) {
  return static_cast<id>(abi::__cxa_begin_catch(exception));
}
TIN_EXPORT void objc_end_catch(void) { abi::__cxa_end_catch(); }

namespace tinmac {

void trap(const char* rule, std::string_view detail) { tinTrap(rule, std::string(detail).c_str()); }

void raise(std::string_view name, std::string_view reason) {
  NSString* nameText = makeString(name);
  NSString* reasonText = makeString(reason);
  NSException* exception = [[NSException alloc] initWithName:nameText
                                                      reason:reasonText
                                                    userInfo:nil];
  [nameText release];
  [reasonText release];
  auto* thrown = static_cast<id*>(abi::__cxa_allocate_exception(sizeof(id)));
  *thrown = exception;
  auto* type = const_cast<ThrownType*>(&tinExceptionType);
  abi::__cxa_throw(thrown, reinterpret_cast<std::type_info*>(type), letGo);
}

}  // namespace tinmac
