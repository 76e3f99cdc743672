#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// When a session that has lost its connection makes another one.
enum class Reconnect : std::uint8_t { AtRequest, AtOnce, Never };

/// The same as words of the command line, in that order.
const std::vector<std::string>& reconnectWords();

struct SessionOptions {
  std::string identity;
  double timeoutSeconds = 5;  ///< For a reply, in real time.
  Reconnect reconnect = Reconnect::AtRequest;
};

/// `korvel-app session`: reads a request a line from standard input, in the words of the program's
/// own commands (`set-limit 80`, `state`), and writes one JSON object a line. Each request has one
/// answer, in their order:
///   {"ok": true}                                      it succeeded
///   {"ok": true, "pid": 412}                          ping
///   {"ok": true, "state": {...}}                      the record; null: the helper sent none
///   {"ok": true, "capabilities": {...}}               the same of these
///   {"ok": false, "code": 400, "error": "..."}        it failed; no code: without an error
///   {"ok": false, "lost": true, "error": "..."}       no answer came, and none will
///   {"ok": false, "usage": true, "error": "..."}      there is no such request
/// Events come when they happen, also while nothing is asked:
///   {"event": "connected"}                            first of all, and after each reconnection
///   {"event": "disconnected", "error": "..."}         before the answer of a request that it costs
/// A session that cannot connect at its start says {"ok": false, "error": "..."} and fails. It ends
/// with its input. Returns an exit code.
int runSession(const RootDirectory& root, const SessionOptions& options);

}  // namespace virtualmac
