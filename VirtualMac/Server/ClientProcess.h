#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/streambuf.hpp>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// An application in a process of its own: `korvel-app session` on pipes. Answers come while the
/// context runs, in the order of the requests; a session that ends answers what is left with Lost.
/// Destroying it ends the session in order.
class ClientProcess {
 public:
  /// A reply is waited for `replySeconds` in real time. Throws a std::runtime_error when the
  /// program cannot be started.
  ClientProcess(asio::io_context& context, const std::string& program, const RootDirectory& root,
                const std::string& identity, double replySeconds);
  ~ClientProcess();
  ClientProcess(const ClientProcess&) = delete;
  ClientProcess& operator=(const ClientProcess&) = delete;

  using Answered = std::function<void(const std::string& line)>;
  /// Sends a line. `answered` gets the line that comes back; an empty one when none ever will.
  void send(const std::string& line, Answered answered);
  void kill();
  /// `told` gets the session's first line as soon as it has come; an empty one when none ever will.
  void whenOpen(Answered told);

  /// True from when the session said that it is connected until it says that it is not any more.
  [[nodiscard]] bool isConnected() const { return said->connected && !said->over; }
  /// True once it was connected, or could not be, and is not any more.
  [[nodiscard]] bool isGone() const {
    return said->over || (!said->firstLine.empty() && !said->connected);
  }
  [[nodiscard]] bool isOver() const { return said->over; }
  /// The session's first line, which says that it is connected, or why not; empty until then.
  [[nodiscard]] const std::string& firstLine() const { return said->firstLine; }

 private:
  /// Shared by the reading and its handlers, which may run once more after the end.
  struct Saying {
    explicit Saying(asio::io_context& context) : output(context) {}
    asio::posix::stream_descriptor output;
    asio::streambuf buffer;
    std::deque<Answered> waiting;
    std::string firstLine;
    Answered opened;
    bool connected = false;
    bool over = false;
  };
  /// Takes a line: an event, or the answer to what was sent first.
  static void hear(Saying& saying, const std::string& line);
  static void readNext(const std::shared_ptr<Saying>& saying);

  std::shared_ptr<Saying> said;
  pid_t pid = 0;
  int input = -1;
};

}  // namespace virtualmac
