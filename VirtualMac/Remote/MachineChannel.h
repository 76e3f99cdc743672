#pragma once

#include <array>
#include <asio/local/stream_protocol.hpp>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "VirtualMac/Remote/CallArguments.h"
#include "VirtualMac/Remote/FrameSocket.h"

namespace virtualmac {

class EventThread;

/// The first byte of a frame between the helper and its machine. Calls and answers go over one
/// socket, news over another one, whose end the helper sends with its first frame.
enum class MachineFrame : std::uint8_t {
  Call,    ///< To the machine: ticket, call number, arguments. Ticket 0 wants no answer.
  Answer,  ///< To the helper: ticket, whether giving back takes time, result and out-arguments.
  Power,   ///< News: notifier, message type, notification id.
  Clock,   ///< News: the rate at which its machine's time runs from now on.
  News     ///< To the machine, first: the news socket's end comes with it.
};

/// Identifies a call; see callNumber.
using CallNumber = std::uint16_t;

/// The helper's end of the connection to its machine. Any thread may call. Of those that wait for
/// an answer one reads for all, so an answer wakes nobody else. The listener gets the machine's
/// news on the thread of events.
///
/// Failure: the channel ends when the machine goes away or a frame makes no sense, and tells the
/// end handler why, once, on the thread that notices. Calls that wait then or come later never
/// return. The owner ends the process, or destroys the channel when no caller is left and the
/// thread of events has stopped.
class MachineChannel {
 public:
  using Listener = std::function<void(MachineFrame kind, WireReader& body)>;
  using EndHandler = std::function<void(const std::string& reason)>;

  /// Takes over `descriptor`, one end of a connected stream socket.
  MachineChannel(int descriptor, EventThread& events);
  ~MachineChannel();
  MachineChannel(const MachineChannel&) = delete;
  MachineChannel& operator=(const MachineChannel&) = delete;

  /// Asks the machine for its news. The handlers must not make calls. Before the first call.
  void start(Listener listener, EndHandler endHandler);

  /// Makes a call and waits for its answer. `Arguments` are the declared types.
  template <class Result, class... Arguments>
  Result call(CallNumber number, std::remove_reference_t<Arguments>&... arguments) {
    WireWriter request;
    putArguments(request, arguments...);
    const std::string answer = exchange(number, request.body());
    WireReader reader(answer);
    if constexpr (std::is_void_v<Result>) {
      getOutArguments<Arguments...>(reader, arguments...);
      checkAnswer(number, reader);
    } else {
      Result result{};
      get(reader, result);
      getOutArguments<Arguments...>(reader, arguments...);
      checkAnswer(number, reader);
      return result;
    }
  }

  /// Makes a call that gives something back. Nothing is learned from its answer, so it is awaited
  /// only while the machine says that such calls take time.
  template <class... Arguments>
  void giveBack(CallNumber number, const Arguments&... arguments) {
    WireWriter request;
    putArguments(request, arguments...);
    if (givingBackTakesTime)
      exchange(number, request.body());
    else
      send(0, number, request.body());
  }

  /// Makes a call without waiting for its answer. Later calls come after it.
  template <class... Arguments>
  void tell(CallNumber number, const Arguments&... arguments) {
    WireWriter request;
    putArguments(request, arguments...);
    send(0, number, request.body());
  }

 private:
  std::string exchange(CallNumber number, std::string_view arguments);
  void send(std::uint32_t ticket, CallNumber number, std::string_view arguments);
  void checkAnswer(CallNumber number, WireReader& reader);
  void readNews();
  bool takeNews(const std::string& frame);
  void takeAnswer(const FrameSocket::Received& frame, std::unique_lock<std::mutex>& lock);
  void end(const std::string& reason);

  FrameSocket socket;
  asio::local::stream_protocol::socket news;
  std::array<char, 1024> chunk{};
  std::string incomingNews;
  Listener listener;
  EndHandler endHandler;
  std::atomic<bool> over = false;
  std::atomic<bool> givingBackTakesTime = false;  ///< As the last answer says.
  std::mutex sendMutex;  ///< One frame at a time; never held while waiting for an answer.
  std::mutex mutex;      ///< Guards the fields below.
  std::condition_variable changed;
  bool reading = false;  ///< One of the callers reads, without the lock.
  std::uint32_t lastTicket = 0;
  std::map<std::uint32_t, std::string> answers;
};

}  // namespace virtualmac
