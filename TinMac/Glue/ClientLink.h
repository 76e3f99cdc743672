#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "TinMac/Frameworks/BelowClient.h"
#include "VirtualMac/Remote/FrameSocket.h"
#include "VirtualMac/Remote/XPCMessages.h"

/// Those of one reply.
struct TinAnswer {
  std::vector<virtualmac::XPCValue> values;
};

/// The way to a peer.
struct TinPeer {
  /// None: it cannot be reached, and never will be.
  std::function<std::optional<virtualmac::FrameSocket>()> connect;
  bool comesBack;  ///< Once it has gone away, the next message may find it again.
};

/// A connection to the service over its socket. A new socket takes the place of one that the peer
/// has closed as soon as there is something to send. Any thread; the events come on a thread of the
/// connection, which deletes it after `close`.
struct TinClient {
 public:
  /// Without a way to connect there is no such peer.
  TinClient(TinPeer wanted, std::string codeRequirement, const TinClientEvents& told);
  TinClient(const TinClient&) = delete;
  TinClient& operator=(const TinClient&) = delete;

  void start();
  /// True: it was sent. Else it fails later, by its own ticket or by `unsentTicket`.
  bool send(const virtualmac::XPCCall& call, std::uint32_t unsentTicket);
  void end(TinClientEnd reason);
  void close();
  /// Waits for an event that is being told, for a few seconds at most, and tells none any more.
  void beQuiet();
  /// Whether the peer can still hear of its end.
  bool isConnected();

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Socket = std::shared_ptr<virtualmac::FrameSocket>;

  void run();
  /// Each of these works on one of the things that `run` waits for, with the lock let go meanwhile.
  void serveSocket(Lock& lock);
  void failUnsent(Lock& lock);
  void tellEnd(Lock& lock);

  void readReplies(const Socket& open);
  /// Whether the peer may go on talking.
  bool admits(const Socket& open);
  bool take(const std::string& body);
  /// The open socket, or a new one; null: the service cannot be reached.
  Socket connected();
  template <class Event>
  void tell(Event event);

  const TinPeer peer;
  const std::string requirement;
  const TinClientEvents events;
  std::recursive_timed_mutex telling;  ///< Held while an event is told.
  std::mutex sending;
  std::mutex mutex;  ///< Guards the fields below.
  std::condition_variable changed;
  Socket socket;
  std::set<std::uint32_t> awaited;  ///< Tickets that went over this socket.
  std::deque<std::uint32_t> unsent;
  std::optional<TinClientEnd> over;
  bool endIsTold = false;
  bool closing = false;
};
