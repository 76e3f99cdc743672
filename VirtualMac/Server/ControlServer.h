#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace virtualmac {

class MachineServer;

/// The machine's door for people and programs: a socket in the root directory that takes one JSON
/// object a line.
///
///   {"command": "set", "arguments": ["battery", "80"]}
///     → {"ok": true, "text": "...", "json": {...}} or
///       {"ok": false, "usage": true or false, "error": "..."}
///   {"command": "follow"}
///     → {"ok": true, "size": N}, the length of the journal file so far, then one
///       {"line": "...", "kind": "..."} an effect; once a connection
///   {"command": "identify", "identity": "app"}
///     → {"ok": true, "service": path}; the asking process has that signing identity from then on,
///       until the last connection on which it asked is closed.
///   {"command": "join", "identity": "app"}
///     → the same, and with it the connection is that of a program to its machine (MachineChannel)
///   {"command": "down"}
///     → {"ok": true} when the helper has ended; then the machine is gone
///
/// Failure: what is not such a line is answered with an error; after that of a line that is too
/// long the connection ends. A client that does not read is not read from either, and a follower
/// that does not is let go (Bounds.h).
class ControlServer {
 public:
  /// `down` runs when the machine is to end.
  ControlServer(MachineServer& machineServer, std::function<void()> down);
  ~ControlServer();

  /// Publishes the socket. None: done; else what went wrong.
  std::optional<std::string> listen();

  struct Parts;

 private:
  std::unique_ptr<Parts> parts;
};

}  // namespace virtualmac
