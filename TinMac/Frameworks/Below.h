#pragma once

#include <stddef.h>
#include <stdint.h>

#include "TinMac/Frameworks/Values.h"

/// The frameworks ask this of the rooms below them. The frameworks are compiled against Apple's
/// headers and those rooms against Linux's, for the same processor; so only integers of 32 bits or
/// more, doubles, pointers and plain structures cross: Apple's compiler trusts the caller to widen
/// a shorter argument, and Linux's does not.
///
/// Handles are names that the machine gave; 0 is none. A function that takes a sink tells it
/// exactly one value. Statuses are Apple's own numbers. Any thread, unless a function says
/// otherwise.
#ifdef __cplusplus
extern "C" {
#endif
// NOLINTBEGIN(modernize-use-using): a name across the wall is C's

// --- The process

/// The program broke a rule of a framework: says which, with the detail, and ends the process.
__attribute__((noreturn)) void tinTrap(const char* rule, const char* detail);
/// An object of a class came (1) or went (-1).
void tinBooksCount(const char* className, int32_t change);
/// A rule was broken in a way that a Mac survives. Counted and printed with the books.
void tinBooksNote(const char* rule, const char* detail);
/// Runs the main thread's loop for so many real seconds. Main thread.
void tinMainRunFor(double seconds);
/// One pointer a thread, null at first, for the stack of autorelease pools.
void** tinThreadPools(void);
/// Runs the main thread's loop; does not return.
void tinMainRun(void);
/// A counting semaphore; `value` is not negative.
void* tinSemaphoreMake(int64_t value);
void tinSemaphoreFree(void* semaphore);
/// Whether a thread waited (1).
uint32_t tinSemaphoreSignal(void* semaphore);
/// Waits until a moment of dispatch. 0: it came first.
uint32_t tinSemaphoreWait(void* semaphore, uint64_t until);
/// Lets so much of the machine's time pass, without its sleep.
void tinPause(double seconds);
/// Writes all of it to a descriptor of the process's own, not to the machine's disk. Returns 0, or
/// a Mac's error number.
int32_t tinWriteOut(int32_t descriptor, const uint8_t* bytes, size_t length);

// --- Values on their way down

/// A sink for one value that the next call of this thread takes with it.
const struct TinValueSink* tinOutgoingValue(void);

// --- Registry and user clients

uint32_t tinServiceMatching(const char* className);
int32_t tinObjectRelease(uint32_t object);
uint32_t tinObjectConformsTo(uint32_t object, const char* className);
void tinEntryProperty(uint32_t entry, const char* key, const struct TinValueSink* sink);
int32_t tinEntryProperties(uint32_t entry, const struct TinValueSink* sink);
int32_t tinEntryIterator(uint32_t entry, const char* plane, uint32_t options, uint32_t* iterator);
uint32_t tinIteratorNext(uint32_t iterator);
/// Opens a user client of the SMC.
int32_t tinServiceOpen(uint32_t service, uint32_t* connection);
/// Closes a user client or the root power domain's connection.
int32_t tinServiceClose(uint32_t connection);
/// Both blocks have 80 bytes.
int32_t tinCallStruct(uint32_t connection, const uint8_t* input, uint8_t* output);

// --- Power sources, assertions, settings

uint64_t tinPowerSourcesInfo(void);
/// Gives each element's name to `element`. Returns the list's handle; `isArray` is 0 for anything
/// else.
uint64_t tinPowerSourcesList(uint64_t info, uint32_t* isArray,
                             void (*element)(void* context, uint64_t source), void* context);
void tinPowerSourceDescription(uint64_t info, uint64_t source, const struct TinValueSink* sink);
/// Of an info or of a list.
void tinPowerSourcesRelease(uint64_t object);
/// Takes the outgoing value: the properties.
int32_t tinAssertionCreate(uint32_t* assertion);
int32_t tinAssertionRelease(uint32_t assertion);
int32_t tinSetPowerSetting(const char* key, uint32_t value);
void tinPowerSettings(const struct TinValueSink* sink);

// --- The root power domain. Messages come on the main thread, while its source is in the run loop.

typedef void (*TinInterest)(void* context, uint32_t service, uint32_t messageType,
                            uint64_t messageArgument);
uint32_t tinPowerRegister(void* context, TinInterest heard, uint64_t* port, uint32_t* notifier);
int32_t tinPowerDeregister(uint32_t* notifier);
int32_t tinPowerAllow(uint32_t connection, int64_t notification);
/// The port's run-loop source, by the machine's name.
uint64_t tinPortSource(uint64_t port);
void tinPortDestroy(uint64_t port);
uint64_t tinMainRunLoop(void);
void tinRunLoopAddSource(uint64_t runLoop, uint64_t source);
void tinRunLoopRemoveSource(uint64_t runLoop, uint64_t source);

// NOLINTEND(modernize-use-using)
#ifdef __cplusplus
}
#endif
