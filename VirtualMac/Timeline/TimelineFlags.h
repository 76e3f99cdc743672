#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Timeline/Timeline.h"

namespace virtualmac {

/// A mark at the top of the picture: a pole at its moment, and a flag where there is room.
struct TimelineFlag {
  const TimelineMark* mark = nullptr;
  double pole = 0;
  std::optional<std::size_t> row;  ///< None: it is one of a crowd.
  double left = 0;
  double width = 0;
  std::string words;
};

/// Marks that found no room, side by side, under one small sign that counts them.
struct TimelineCrowd {
  double left = 0;
  double width = 0;
  std::vector<const TimelineMark*> marks;
  [[nodiscard]] std::string words() const;    ///< `+3 more`
  [[nodiscard]] std::string tooltip() const;  ///< A line a mark, fit for XML.
};

struct TimelineFlags {
  std::vector<TimelineFlag> flags;
  std::vector<TimelineCrowd> crowds;
};

inline constexpr std::size_t timelineFlagRows = 3;
inline constexpr double timelineFlagSize = 11, timelineCrowdSize = 10;  ///< Letter heights.

/// Lays requests, refusals, deeds and events of the helper in rows, so that none covers another.
/// `x` gives the place of a moment, `right` the end of the page. The marks must outlive the result.
TimelineFlags layFlags(const std::vector<TimelineMark>& marks,
                       const std::function<double(double)>& x, double right);

/// A moment and what happened then: `00:01:00 limit 80 %`.
std::string timelineTooltip(const TimelineMark& mark);

}  // namespace virtualmac
