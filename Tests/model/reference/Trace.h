#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace model {

using Values = std::map<std::string, std::string>;

/// The answer to a platform call, as plain values. A property list becomes a map from paths
/// ("BatteryData/Temperature") to values with a letter for their type ("i3000", "b1", "stext").
struct Answer {
  bool given = false;  ///< False: the process ended in the call.
  std::int64_t code = 0;
  std::int64_t number = 0;
  double real = 0;
  std::string text = {};
  Values values = {};
};

/// One call of the program: a platform call, a reply, a post, a timer, a wait.
struct Event {
  std::string text = {};
  std::uint64_t order = 0;  ///< Its place among everything that happened.
  std::int64_t at = 0;      ///< Nanoseconds that the machine was awake.
  Answer answer = {};
  std::uint64_t answeredOrder = 0;
  std::int64_t answeredAt = 0;
};

enum class Cause : std::uint8_t {
  Start,       ///< `number`: the process id; `text`: the version; `path`: the program's.
  Work,        ///< Work of the serial queue; `number`: as its post was numbered.
  Timer,       ///< `number`: the timer's id.
  Message,     ///< `text`: the selector; `argument`; `number`: the client's process id.
  Connection,  ///< A new connection is offered; `number`: the client's process id.
  Leaving,     ///< An accepted connection has ended; `number`: as for Connection.
  Breaking,    ///< An accepted connection is interrupted.
  Signal,      ///< `number`
  Power,       ///< `number`: the message's type; `argument`: its notification.
  Outside,     ///< One event that belongs to nothing known.
  End          ///< The process has ended; `number`: its status, -1 when it was killed.
};

/// A stretch of one thread's events, and its cause.
struct Item {
  Cause cause{};
  std::int64_t number = 0;
  std::int64_t argument = 0;
  std::string text = {};
  std::string path = {};
  std::uint64_t order = 0;
  std::int64_t at = 0;
  bool ended = false;  ///< False: it was cut off.
  std::uint64_t endOrder = 0;
  std::int64_t endAt = 0;
  std::vector<Event> events = {};
};

/// Items in the order in which they began.
using Trace = std::deque<Item>;

}  // namespace model
