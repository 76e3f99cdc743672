#pragma once

#include <stddef.h>
#include <stdint.h>

#include "TinMac/Frameworks/Values.h"

/// The frameworks ask this of the rooms below them, continued: services above the kernel. The rules
/// of Below.h hold.
#ifdef __cplusplus
extern "C" {
#endif
// NOLINTBEGIN(modernize-use-using): a name across the wall is C's

// --- Code objects

int32_t tinStaticCodeWithPath(const char* path, uint64_t* code);
int32_t tinGuestWithPid(int32_t pid, uint64_t* code);
int32_t tinStaticCodeOf(uint64_t code, uint64_t* staticCode);
/// On failure the sink hears `absent`.
int32_t tinSigningInformation(uint64_t staticCode, uint32_t flags, const struct TinValueSink* sink);
void tinCodeRelease(uint64_t code);

// --- Wall clock and main bundle

double tinSecondsSince2001(void);
void tinBundleExecutablePath(const struct TinValueSink* sink);
void tinBundleInfo(const char* key, const struct TinValueSink* sink);

// --- PowerUI. The machine says which classes and methods there are, and what each call does.

/// Hears what a call left in its error slot: nothing, or a description.
typedef void (*TinErrorSlot)(void* context, const char* description, size_t length);

uint64_t tinPowerUILoad(const char* path, int32_t mode);
uint64_t tinPowerUIClass(const char* name);
uint32_t tinPowerUIIsClass(uint64_t object);
uint64_t tinPowerUIClassMethod(uint64_t cls, const char* selector);
uint64_t tinPowerUIInstanceMethod(uint64_t cls, const char* selector);
uint64_t tinPowerUIAlloc(uint64_t method, uint64_t cls);
uint64_t tinPowerUIInit(uint64_t method, uint64_t object, const char* clientName);
uint32_t tinPowerUIResponds(uint64_t object, const char* selector);
uint32_t tinPowerUIBoolean(uint64_t object, const char* selector);
int32_t tinPowerUIInt32(uint64_t object, const char* selector, TinErrorSlot slot, void* context);
void tinPowerUIObject(uint64_t object, const char* selector, const struct TinValueSink* sink,
                      TinErrorSlot slot, void* context);
uint32_t tinPowerUISetUInt8(uint64_t object, const char* selector, uint32_t value,
                            TinErrorSlot slot, void* context);
void tinPowerUIRelease(uint64_t object);

// --- XPC

/// A connection as the glue knows it.
typedef struct TinConnection TinConnection;
/// An answer that is owed to a peer. Taken by exactly one of tinReplySend and tinReplyDrop.
typedef struct TinReply TinReply;

struct TinListener {
  void* context;
  /// On the listener's own thread. The connection is suspended. 1: accepted.
  uint32_t (*accept)(void* context, TinConnection* connection);
};
/// Starts to serve; the listener stays for the process's life.
void tinListen(const char* serviceName, const struct TinListener* listener);
/// The same for clients of this process only. Returns the endpoint by which they find the listener.
uint32_t tinListenWithin(const struct TinListener* listener);
/// Takes no more clients at an endpoint, and ends the connections of those that were accepted.
void tinEndpointEnd(uint32_t endpoint);

struct TinExported {
  void* context;
  /// On a thread of the connection. `argument` is the operation's number or Boolean, 0 without one;
  /// `reply` is null for an operation that answers nothing.
  void (*deliver)(void* context, const char* selector, uint32_t argument, TinReply* reply);
  /// The connection let go of the object.
  void (*dropped)(void* context);
};
void tinConnectionExport(TinConnection* connection, const char* protocolName,
                         const struct TinExported* exported);
/// The classes that the interface allows in an argument of a reply; those of Apple's names.
void tinConnectionReplyClasses(TinConnection* connection, const char* selector, uint32_t argument,
                               const char* const* classNames, size_t count);
/// 0: the text does not parse.
uint32_t tinConnectionRequirement(TinConnection* connection, const char* requirement);
enum TinHandlerKind { TinInvalidation, TinInterruption };
struct TinHandler {
  void* context;
  void (*run)(void* context);
  /// The connection let go of the handler.
  void (*dropped)(void* context);
};
void tinConnectionHandler(TinConnection* connection, uint32_t kind,
                          const struct TinHandler* handler);
void tinConnectionResume(TinConnection* connection);
/// The peer whose call runs on this thread; -1 outside a call.
int32_t tinCurrentPeer(void);
/// A sink that hears the reply's arguments one after the other.
const struct TinValueSink* tinReplyValues(TinReply* reply);
/// Sends what the sink heard.
void tinReplySend(TinReply* reply);
/// The block went away uncalled.
void tinReplyDrop(TinReply* reply);

// NOLINTEND(modernize-use-using)
#ifdef __cplusplus
}
#endif
