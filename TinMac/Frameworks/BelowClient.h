#pragma once

#include <stddef.h>
#include <stdint.h>

#include "TinMac/Frameworks/Values.h"

/// The frameworks of a client ask this of the rooms below them. The rules of Below.h hold.
#ifdef __cplusplus
extern "C" {
#endif
// NOLINTBEGIN(modernize-use-using): a name across the wall is C's

/// A connection as the glue knows it. Everything that it tells comes on a thread of its own, one
/// thing after the other.
typedef struct TinClient TinClient;
/// The values of a reply, for as long as it is told.
typedef struct TinAnswer TinAnswer;

/// The reason why a message gets no reply, or a connection stopped.
enum TinClientEnd {
  TinClientInterrupted,  ///< The peer went away; the next message starts it again.
  TinClientInvalid,      ///< There is no such service, or the connection was invalidated.
  TinClientRefused       ///< The peer does not satisfy the requirement.
};

struct TinClientEvents {
  void* context;
  void (*replied)(void* context, uint32_t ticket, const TinAnswer* answer);
  /// No reply to this message will come. `end` is one of TinClientEnd.
  void (*failed)(void* context, uint32_t ticket, uint32_t end);
  /// After the messages that fail with it. Only after TinClientInterrupted may more come.
  void (*ended)(void* context, uint32_t end);
};

/// Whether the text of a code-signing requirement parses (1).
uint32_t tinRequirementParses(const char* requirement);
/// Opens a connection; the service is asked for with the first message. `requirement` may be null.
/// A name that no service has ends the connection at once.
TinClient* tinClientOpen(const char* service, const char* requirement,
                         const struct TinClientEvents* events);
/// The same with an endpoint of this process. When its peer has gone, the connection is invalid.
TinClient* tinClientOpenWithin(uint32_t endpoint, const struct TinClientEvents* events);
/// Sends a message. Takes the outgoing value: an array of the arguments. A ticket of 0 wants no
/// reply. 1: it was sent. Else it fails later, whatever its ticket is, as `unsent`.
uint32_t tinClientSend(TinClient* client, uint32_t ticket, const char* selector, uint32_t unsent);
/// Ends a connection: what is outstanding fails, then the end is told.
void tinClientInvalidate(TinClient* client);
/// Ends a connection without a word and lets go of it.
void tinClientClose(TinClient* client);
/// Tells the reply's values one after the other.
void tinAnswerTell(const TinAnswer* answer, const struct TinValueSink* sink);
/// The process ends: waits until no connection tells anything, and lets none tell more.
void tinClientsQuiet(void);

// NOLINTEND(modernize-use-using)
#ifdef __cplusplus
}
#endif
