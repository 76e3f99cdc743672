#include <memory>

#include "Tests/tin/ServicesMachine.h"

struct TinClient {
  TinClientEvents events;
};

struct TinAnswer {
  void (*tell)(const TinValueSink& sink);
};

namespace tinmac::services {

namespace {

/// It stays after its frameworks have closed it, since events may come late.
TinClient& client() {
  static TinClient only;
  return only;
}

void note(std::string entry) { machine().journal.push_back(std::move(entry)); }

std::uint32_t tinRequirementParses(const char* requirement) {
  return std::string_view(requirement) == "parses" ? 1 : 0;
}
TinClient* tinClientOpen(const char* service, const char* requirement,
                         const TinClientEvents* events) {
  note(std::string("open ") + service + " " + (requirement == nullptr ? "-" : requirement));
  client().events = *events;
  return &client();
}
TinClient* tinClientOpenWithin(std::uint32_t endpoint, const TinClientEvents* events) {
  note("open within " + std::to_string(endpoint));
  client().events = *events;
  return &client();
}
std::uint32_t tinClientSend(TinClient*, std::uint32_t ticket, const char* selector,
                            std::uint32_t unsent) {
  note("send " + std::to_string(ticket) + " " + selector + " " + takeOutgoing() + " or " +
       std::to_string(unsent));
  if (machine().whileSending != nullptr) machine().whileSending(unsent);
  return machine().clientCannotSend ? 0 : 1;
}
void tinClientInvalidate(TinClient*) { note("invalidate"); }
void tinClientClose(TinClient*) { note("close"); }
void tinAnswerTell(const TinAnswer* answer, const TinValueSink* sink) { answer->tell(*sink); }
void tinClientsQuiet() { note("quiet"); }

}  // namespace

void replyToClient(std::uint32_t ticket, void (*values)(const TinValueSink& sink)) {
  const TinAnswer answer{values};
  client().events.replied(client().events.context, ticket, &answer);
}

void failMessage(std::uint32_t ticket, TinClientEnd end) {
  client().events.failed(client().events.context, ticket, end);
}

void endClient(TinClientEnd end) { client().events.ended(client().events.context, end); }

void* clientFunction(std::string_view name) {
  TIN_MACHINE(tinRequirementParses);
  TIN_MACHINE(tinClientOpen);
  TIN_MACHINE(tinClientOpenWithin);
  TIN_MACHINE(tinClientSend);
  TIN_MACHINE(tinClientInvalidate);
  TIN_MACHINE(tinClientClose);
  TIN_MACHINE(tinAnswerTell);
  TIN_MACHINE(tinClientsQuiet);
  return nullptr;
}

}  // namespace tinmac::services
