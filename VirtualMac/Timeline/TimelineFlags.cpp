#include "VirtualMac/Timeline/TimelineFlags.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "VirtualMac/Timeline/TimelineText.h"

namespace virtualmac {

namespace {

constexpr double gap = 4, flagPadding = 12, crowdPadding = 10;
constexpr std::size_t longestWords = 40;

bool hasFlag(TimelineMarkKind kind) {
  return kind != TimelineMarkKind::Log && kind != TimelineMarkKind::Error &&
         kind != TimelineMarkKind::Failure;
}

/// Adds the mark to the latest crowd if their signs would overlap, else begins a new crowd.
void crowd(std::vector<TimelineCrowd>& crowds, const TimelineMark& mark, double at, double right) {
  // Wide enough for any count, so that a sign never grows over its neighbour.
  static const double width = textWidth("+999 more", timelineCrowdSize) + crowdPadding;
  const double left = std::min(at, right - width);
  const bool room = crowds.empty() || left >= crowds.back().left + width + gap;
  if (room) crowds.push_back({left, width, {}});
  crowds.back().marks.push_back(&mark);
}

}  // namespace

std::string TimelineCrowd::words() const { return fmt::format("+{} more", marks.size()); }

std::string TimelineCrowd::tooltip() const {
  std::string lines;
  for (const TimelineMark* mark : marks) {
    if (!lines.empty()) lines += '\n';
    lines += escapedXML(timelineTooltip(*mark));
  }
  return lines;
}

TimelineFlags layFlags(const std::vector<TimelineMark>& marks,
                       const std::function<double(double)>& x, double right) {
  TimelineFlags laid;
  std::array<double, timelineFlagRows> free{};
  for (const TimelineMark& mark : marks) {
    if (!hasFlag(mark.kind)) continue;
    TimelineFlag flag{&mark, x(mark.time), std::nullopt, 0, 0, shortened(mark.text, longestWords)};
    flag.width = textWidth(flag.words, timelineFlagSize) + flagPadding;
    // A flag at the right edge hangs to the left of its pole.
    flag.left = std::min(flag.pole, right - flag.width);
    const auto row =
        std::find_if(free.begin(), free.end(), [&](double end) { return end <= flag.left; });
    if (row != free.end()) {
      flag.row = static_cast<std::size_t>(row - free.begin());
      *row = flag.left + flag.width + gap;
    } else {
      crowd(laid.crowds, mark, flag.pole, right);
    }
    laid.flags.push_back(std::move(flag));
  }
  return laid;
}

std::string timelineTooltip(const TimelineMark& mark) {
  return timelineMoment(mark.time) + ": " + mark.text;
}

}  // namespace virtualmac
