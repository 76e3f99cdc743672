#include "Base/Date.h"

#include <cstring>
#include <string>

#include "Tests/fuzz/Target.h"
#include "Tests/fuzz/targets/Slow.h"

namespace korvel::fuzz {

/// The input is a date's text, and its first bytes are also a number of seconds.
void date(std::string_view input) {
  const auto read = dateFromISO8601(input);
  const auto slow = slow::secondsOf(input);
  require(read.has_value() == slow.has_value(), "the two readers disagree whether it is a date");
  if (read) {
    require(read->secondsSinceReference == static_cast<double>(*slow), "another moment is read");
    const std::string text = iso8601Text(*read);
    const bool expressible =
        read >= Date::distantPast() && *read <= *dateFromISO8601("9999-12-31T23:59:59Z");
    require(!expressible || dateFromISO8601(text) == *read, "it does not come back from " + text);
  }
  double seconds = 0;
  if (input.size() < sizeof seconds) return;
  std::memcpy(&seconds, input.data(), sizeof seconds);
  const std::string text = iso8601Text(Date{seconds});
  const auto again = dateFromISO8601(text);
  require(again && slow::secondsOf(text), "no date is written: " + text);
  require(iso8601Text(*again) == text, "another text is written for " + text);
}

}  // namespace korvel::fuzz
