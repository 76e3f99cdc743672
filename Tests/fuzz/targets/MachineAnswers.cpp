#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <future>
#include <string>

#include "Tests/fuzz/Target.h"
#include "VirtualMac/Remote/DescriptorPassing.h"
#include "VirtualMac/Remote/EventThread.h"
#include "VirtualMac/Remote/MachineChannel.h"

namespace korvel::fuzz {

namespace {

using virtualmac::ConnectionBreak;
using virtualmac::Effect;
using virtualmac::EventThread;
using virtualmac::FileVerdict;
using virtualmac::FrameSocket;
using virtualmac::get;
using virtualmac::MachineChannel;
using virtualmac::MachineFrame;
using virtualmac::MachineTime;
using virtualmac::put;
using virtualmac::realDuration;
using virtualmac::receiveWithDescriptor;
using virtualmac::uptimeAt;
using virtualmac::WireReader;
using virtualmac::WireWriter;

/// An answer of one type; one that reads is written and read again.
template <class Value>
void answer(std::string_view input) {
  WireReader reader(input);
  Value value{};
  get(reader, value);
  if (!reader.finish()) return require(!reader.failure().empty(), "a refusal says nothing");
  WireWriter first;
  put(first, value);
  require(first.body().size() == input.size(), "an answer has not the size of its bytes");
  WireReader again(first.body());
  Value second{};
  get(again, second);
  require(again.finish(), "its own bytes are refused: " + again.failure());
  WireWriter bytes;
  put(bytes, second);
  require(bytes.body() == first.body(), "an answer does not come back from its bytes");
}

/// A machine's time must give one for any moment.
void clock(const MachineTime& time) {
  constexpr std::int64_t hour = 3'600'000'000'000;
  require(uptimeAt(time, time.steadyNanoseconds + hour) >= time.uptime, "the uptime runs back");
  static_cast<void>(realDuration(time, hour));
}

void hear(MachineFrame kind, WireReader& body) {
  if (kind == MachineFrame::Clock) {
    MachineTime time;
    get(body, time);
    if (body.finish()) clock(time);
    return;
  }
  body.u32();
  body.u32();
  body.u64();
}

/// All news come over a socket that then ends; the channel ends by itself and says why.
void channel(std::string_view input) {
  std::array<int, 2> ends{};
  require(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0, "there is no socket");
  const FrameSocket machine(ends[0]);
  std::promise<std::string> over;
  EventThread events;
  MachineChannel helper(ends[1], events);
  helper.start(&hear, [&over](const std::string& reason) { over.set_value(reason); });
  std::array<char, 64> first{};
  int news = -1;
  require(receiveWithDescriptor(machine.descriptor(), first, news) > 0 && news >= 0,
          "there is no socket for news");
  FrameSocket(news).send(input);
  require(!over.get_future().get().empty(), "the end has no reason");
  events.stop();
}

}  // namespace

/// The input's first byte chooses: all news that a machine sends its helper, or one answer of a
/// type.
void machineAnswers(std::string_view input) {
  if (input.empty()) return;
  const char kind = input.front();
  input.remove_prefix(1);
  switch (kind) {
    case 'p':
      return answer<PropertyValue>(input);
    case 's':
      return answer<PowerSourceList>(input);
    case 'v':
      return answer<FileVerdict>(input);
    case 't':
      return answer<MachineTime>(input);
    case 'e':
      return answer<Effect>(input);
    case 'b':
      return answer<std::optional<ConnectionBreak>>(input);
    case 'x':
      return answer<std::optional<std::string>>(input);
    default:
      return channel(input);
  }
}

}  // namespace korvel::fuzz
