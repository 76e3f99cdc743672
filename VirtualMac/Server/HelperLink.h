#pragma once

#include <array>
#include <asio/local/stream_protocol.hpp>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/PowerManagement.h"
#include "VirtualMac/Remote/FrameSocket.h"
#include "VirtualMac/Remote/MachineHalf.h"
#include "VirtualMac/Server/RealTimeDriver.h"

namespace virtualmac {

/// The machine's end of the connection to one helper process, or to a client that was launched as
/// one of the machine's programs. Calls are answered in the order in
/// which their latency has passed; one that takes long keeps nobody else waiting.
///
/// Failure: a frame that makes no sense ends the
/// connection with a text, and with it the helper, which can't live without its machine. Whatever
/// else the process does is not this object's concern: its calls are answered for as long as it is
/// connected.
class HelperLink final : public std::enable_shared_from_this<HelperLink> {
 public:
  using Socket = asio::local::stream_protocol::socket;

  HelperLink(Socket connected, Machine& served, RealTimeDriver& keeper,
             std::shared_ptr<HelperProcess> helper, Journal& journal, DiskWatch& disk);

  /// Any other call cuts the process off. Before the start; without it every call is answered.
  void answerOnly(std::function<bool(CallNumber)> allowed) { mayCall = std::move(allowed); }
  /// Runs once when the process has closed its end or was cut off. Before the start.
  void setEndHandler(std::function<void()> handler) { endHandler = std::move(handler); }
  /// Starts reading. `problem` is told what was wrong when the helper is cut off.
  void start(std::function<void(const std::string&)> problem);
  /// The helper has ended: makes the calls that it had sent by then.
  void drain();
  /// Answers nothing from now on.
  void close();
  void sendClock(const MachineTime& time);
  /// The platform calls that wait for their latency to pass, in the order in which they came.
  [[nodiscard]] std::vector<SeamCall> callsUnderWay() const;
  /// The platform call that is under way, or else the one that the process made last.
  [[nodiscard]] std::optional<SeamCall> lastCall() const;

 private:
  struct PendingCall {
    std::uint32_t ticket = 0;
    CallNumber number = 0;
    std::string arguments;
  };
  /// A socket, and the frames that wait for it.
  struct Way {
    Socket socket;
    std::deque<std::string> outgoing = {};
  };
  void sendPower(const PowerMessage& message);
  void begin();
  void readMore();
  void takeFrames();
  void takeCall(const std::string& body);
  void delayCall(PendingCall call, double seconds);
  void answer(const PendingCall& call);
  void send(Way& way, const std::string& body);
  void writeNext(Way& way);
  void cutOff(const std::string& reason);
  void tellEnd();

  Way callWay;
  Way newsWay;  ///< Closed when the process wants none.
  RealTimeDriver& timeDriver;
  std::shared_ptr<HelperProcess> process;
  MachineHalf half;
  std::function<void(const std::string&)> problemHandler;
  std::function<bool(CallNumber)> mayCall;
  std::function<void()> endHandler;
  std::array<char, 4096> chunk{};
  std::string incoming;
  std::optional<SeamCall> last;
  std::map<std::uint64_t, SeamCall> underWay;
  std::uint64_t delayedCalls = 0;
  bool closed = false;
};

}  // namespace virtualmac
