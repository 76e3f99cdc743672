#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "TinMac/Frameworks/Below.h"
#include "TinMac/Frameworks/BelowClient.h"
#include "TinMac/Frameworks/BelowServices.h"

/// A machine that answers the frameworks' calls with fixed names and values, and writes down what
/// it is asked to do. One thread at a time.
namespace tinmac::services {

/// Says a told value in words.
class TextSink {
 public:
  TextSink();
  TextSink(const TextSink&) = delete;
  TextSink& operator=(const TextSink&) = delete;

  [[nodiscard]] const TinValueSink& sink() const { return telling; }
  /// The values told so far; none is left.
  std::string take();

 private:
  friend struct Saying;

  void say(const std::string& text);

  TinValueSink telling{};
  std::string said;
};

struct Machine {
  std::vector<std::string> journal;
  bool sourcesAreNoArray = false;
  bool libraryIsLoaded = false;
  bool classIsNoClass = false;
  bool lacksAlloc = false;
  std::string callError;  ///< Empty: the library's calls succeed.
  void* interestContext = nullptr;
  TinInterest interest = nullptr;
  std::int32_t peer = -1;
  TinListener listener{};
  std::string service;
  bool clientCannotSend = false;
  /// Happens to each message of a client before its sender goes on.
  void (*whileSending)(std::uint32_t ticket) = nullptr;
};

/// As it is at first.
void reset();
Machine& machine();
/// Gives what was written down since the last time, one entry a line.
std::string takeJournal();
/// The value that the frameworks told for the call that follows, in words.
std::string takeOutgoing();
/// A function of the machine by its name in the object file; null: it has none.
void* machineFunction(std::string_view name);
/// Functions of the machine's services above the kernel.
void* serviceFunction(std::string_view name);

/// Gives a function of a client's machine; null: it has none of that name.
void* clientFunction(std::string_view name);
/// The machine tells its client something. `values` tells those of a reply.
void replyToClient(std::uint32_t ticket, void (*values)(const TinValueSink& sink));
void failMessage(std::uint32_t ticket, TinClientEnd end);
void endClient(TinClientEnd end);

/// A peer connects. True: the delegate accepted it.
bool connectPeer();
/// The peer sends a message. The answer is written down when it comes.
void sendMessage(const char* selector, std::uint32_t argument, bool hasReply);
/// The connection ends: its handler runs, and it lets go of what it holds.
void endConnection();

}  // namespace tinmac::services

/// The names in the tables of the machine.
#define TIN_MACHINE(function) \
  if (name == "_" #function) return reinterpret_cast<void*>(&(function))
