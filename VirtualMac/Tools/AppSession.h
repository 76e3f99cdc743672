#pragma once

#include <string>

#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// `korvel-app session`: one connection for many requests. Reads a request a line from standard
/// input, in the words of the program's own commands (`set-limit 80`, `state`), and answers each
/// with one JSON object a line:
///   {"connected": true}                               first of all
///   {"connected": false, "error": "..."}              instead, and nothing after it
///   {"ok": true}                                      it succeeded
///   {"ok": true, "pid": 412}                          ping
///   {"ok": true, "data": "..."}                       state, capabilities: the helper's own text
///   {"ok": false, "code": 400, "error": "..."}        it failed; no code: without an error
///   {"ok": false, "lost": true, "error": "..."}       no answer came, and none will
///   {"ok": false, "usage": true, "error": "..."}      there is no such request
/// Ends with its input. Returns an exit code.
int runSession(const RootDirectory& root, const std::string& identity, double timeoutSeconds);

}  // namespace virtualmac
