#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "VirtualMac/Remote/CallArguments.h"
#include "VirtualMac/Remote/FrameSocket.h"

namespace virtualmac {

/// The first byte of a frame between the helper and its machine.
enum class MachineFrame : std::uint8_t {
  Call,    ///< To the machine: ticket, call number, arguments. Ticket 0 wants no answer.
  Answer,  ///< To the helper: ticket, result and out-arguments.
  Power,   ///< To the helper: notifier, message type, notification id.
  Clock    ///< To the helper: the rate at which its machine's time runs from now on.
};

/// Identifies a call; see callNumber.
using CallNumber = std::uint16_t;

/// The helper's end of the connection to its machine. Any thread may call; each waits for its own
/// answer. The listener gets the machine's unasked frames on the channel's own thread.
///
/// Failure: the channel ends when the machine goes away or a frame makes no sense, and tells the
/// end handler why, once. Calls that wait then or come later never return. The owner ends the
/// process, or destroys the channel when no caller is left.
class MachineChannel {
 public:
  using Listener = std::function<void(MachineFrame kind, WireReader& body)>;
  using EndHandler = std::function<void(const std::string& reason)>;

  /// Takes over `descriptor`, one end of a connected stream socket.
  explicit MachineChannel(int descriptor);
  ~MachineChannel();
  MachineChannel(const MachineChannel&) = delete;
  MachineChannel& operator=(const MachineChannel&) = delete;

  /// Starts reading. Both handlers run on the channel's thread and must not make calls.
  void start(Listener listener, EndHandler endHandler);
  /// Returns when the listener is not running, and keeps it from running again. Calls are answered
  /// as before. Not on the channel's thread.
  void stopListening();

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
  void readLoop();
  std::string readFrames();
  bool takeFrame(const std::string& body);

  FrameSocket socket;
  std::atomic<bool> closing = false;
  std::mutex listenerMutex;
  Listener listener;  ///< None after stopListening.
  EndHandler endHandler;
  std::mutex sendMutex;  ///< One frame at a time; never held while waiting for an answer.
  std::mutex mutex;      ///< Guards the fields below.
  std::condition_variable arrived;
  std::uint32_t lastTicket = 0;
  std::map<std::uint32_t, std::string> answers;
  std::thread readingThread;
};

}  // namespace virtualmac
