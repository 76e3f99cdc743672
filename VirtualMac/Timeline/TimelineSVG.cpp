// The picture of a timeline. From top to bottom: title and legend, a failure, requests as flags,
// the charge, the lanes, the time axis, the numbered log lines.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <functional>
#include <iterator>
#include <span>
#include <utility>

#include "VirtualMac/Timeline/Timeline.h"
#include "VirtualMac/Timeline/TimelineFlags.h"
#include "VirtualMac/Timeline/TimelineText.h"

namespace virtualmac {

namespace {

constexpr double pageWidth = 1120, plotLeft = 92, plotRight = 1092;
constexpr double failureBase = 54;
constexpr double flagsTop = 64, flagRow = 17, crowdTop = flagsTop + flagRow * timelineFlagRows;
constexpr double plotTop = 138, plotBottom = 378;
constexpr double lanesTop = 394, laneStep = 24, laneHeight = 16;
constexpr std::size_t listedLines = 14, lineColumns = 137, failureColumns = 130;
constexpr double listStep = 18;

struct Colours {
  std::string_view fill;
  std::string_view ink;
};
constexpr std::string_view ink = "#1f2937", faint = "#6b7280", grid = "#e5e7eb", curve = "#2563eb";
constexpr std::string_view limitInk = "#c2410c", bandFill = "#fdba74", errorInk = "#dc2626",
                           eventInk = "#0e7490", deedInk = "#854d0e";

class Drawing {
 public:
  explicit Drawing(const Timeline& shown) : timeline(shown) {
    start = timeline.samples.front().time;
    duration = std::max(timeline.end - start, 1.0);
    chooseRange();
  }

  std::string svg() {
    frame();
    axes();
    shadeSleep();
    limitAndBand();
    charge();
    lanes();
    flags();
    failures();
    const double height = logLines();
    return fmt::format(
               R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {0:.0f} {1:.0f}" width="{0:.0f}" )"
               R"(height="{1:.0f}" font-family="Helvetica, Arial, sans-serif" role="img" )"
               R"(aria-label="{2}">)"
               "\n"
               R"(<rect width="{0:.0f}" height="{1:.0f}" rx="12" fill="#ffffff"/>)"
               "\n",
               pageWidth, height, escapedXML(timeline.title)) +
           body + "</svg>\n";
  }

 private:
  using Sample = Timeline::Sample;

  void chooseRange() {
    double low = 100;
    double high = 0;
    for (const Sample& sample : timeline.samples) {
      const TimelineState& state = sample.state;
      low = std::min(low, state.percent);
      high = std::max(high, state.percent);
      if (state.enforcing && state.limitPercent && *state.limitPercent < 100) {
        low = std::min(low, static_cast<double>(*state.limitPercent - state.bandPercent));
        high = std::max(high, static_cast<double>(*state.limitPercent));
      }
    }
    lowest = std::max(0.0, std::floor((low - 2) / 5) * 5);
    highest = std::min(100.0, std::ceil((high + 2) / 5) * 5);
  }

  [[nodiscard]] double x(double time) const {
    const double part = std::clamp((time - start) / duration, 0.0, 1.0);
    return plotLeft + part * (plotRight - plotLeft);
  }
  [[nodiscard]] double y(double percent) const {
    const double part = std::clamp((percent - lowest) / (highest - lowest), 0.0, 1.0);
    return plotBottom - part * (plotBottom - plotTop);
  }

  template <class... Values>
  void add(fmt::format_string<Values...> format, Values&&... values) {
    fmt::format_to(std::back_inserter(body), format, std::forward<Values>(values)...);
    body += '\n';
  }
  void text(double left, double base, double size, std::string_view fill, std::string_view words,
            std::string_view anchor = "start", std::string_view weight = "normal") {
    add(R"(<text x="{:.1f}" y="{:.1f}" font-size="{}" fill="{}" text-anchor="{}" )"
        R"(font-weight="{}">{}</text>)",
        left, base, size, fill, anchor, weight, escapedXML(words));
  }

  /// Calls `each(from, to, state)` for every stretch of time in which `key(state)` stays the same.
  template <class Key, class Each>
  void stretches(const Key& key, const Each& each) const {
    const std::vector<Sample>& samples = timeline.samples;
    for (std::size_t first = 0; first < samples.size();) {
      std::size_t next = first + 1;
      while (next < samples.size() && key(samples[next].state) == key(samples[first].state)) ++next;
      each(samples[first].time, next < samples.size() ? samples[next].time : timeline.end,
           samples[first].state);
      first = next;
    }
  }

  void frame() {
    text(24, 34, 18, ink, timeline.title, "start", "bold");
    struct Entry {
      std::string_view words;
      std::string_view sample;
    };
    static constexpr std::array<Entry, 6> fromTheRight{{
        {"done to it", R"(<rect y="-10" width="22" height="12" rx="3" fill="#854d0e"/>)"},
        {"request", R"(<rect y="-10" width="22" height="12" rx="3" fill="#1f2937"/>)"},
        {"asleep", R"(<rect y="-9" width="22" height="10" fill="#c7d2fe" opacity="0.6"/>)"},
        {"band: no decision",
         R"(<rect y="-9" width="22" height="10" fill="#fdba74" opacity="0.35"/>)"},
        {"limit",
         R"(<path d="M0 -4 h22" stroke="#c2410c" stroke-width="1.5" stroke-dasharray="5 3"/>)"},
        {"charge", R"(<path d="M0 -4 h22" stroke="#2563eb" stroke-width="2.5"/>)"},
    }};
    double left = plotRight;
    for (const Entry& entry : fromTheRight) {
      left -= textWidth(entry.words, 12) + 44;
      add("<g transform=\"translate({:.1f} 33)\">{}</g>", left, entry.sample);
      text(left + 28, 34, 12, faint, entry.words);
    }
  }

  void axes() {
    const double percentStep = highest - lowest <= 25 ? 5 : (highest - lowest <= 50 ? 10 : 20);
    for (double percent = std::ceil(lowest / percentStep) * percentStep; percent <= highest;
         percent += percentStep) {
      add(R"(<path d="M{:.1f} {:.1f}H{:.1f}" stroke="{}"/>)", plotLeft, y(percent), plotRight,
          grid);
      text(plotLeft - 10, y(percent) + 4, 12, faint, fmt::format("{:.0f} %", percent), "end");
    }
    const double step = tickSeconds(duration);
    const double bottom = lanesTop + laneStep * laneCount();
    for (double time = std::ceil(start / step) * step; time <= start + duration; time += step) {
      add(R"(<path d="M{0:.1f} {1:.1f}V{2:.1f}" stroke="{3}"/>)", x(time), plotTop, bottom, grid);
      text(x(time), bottom + 16, 12, faint, tickLabel(time, step), "middle");
    }
  }

  void shadeSleep() {
    stretches([](const TimelineState& state) { return state.asleep; },
              [this](double from, double to, const TimelineState& state) {
                if (!state.asleep) return;
                add(R"(<rect x="{:.1f}" y="{:.1f}" width="{:.1f}" height="{:.1f}" fill="#c7d2fe" )"
                    R"(opacity="0.45"/>)",
                    x(from), plotTop, std::max(x(to) - x(from), 1.0), plotBottom - plotTop);
              });
  }

  void limitAndBand() {
    const auto key = [](const TimelineState& state) {
      return std::pair(state.enforcing ? state.limitPercent : std::nullopt, state.bandPercent);
    };
    stretches(key, [this](double from, double to, const TimelineState& state) {
      if (!state.enforcing || !state.limitPercent) return;
      const double limit = *state.limitPercent;
      if (limit < 100) {
        const double bottom = y(limit - std::clamp(state.bandPercent, 1, 20));
        add(R"(<rect x="{:.1f}" y="{:.1f}" width="{:.1f}" height="{:.1f}" fill="{}" )"
            R"(opacity="0.28"/>)",
            x(from), y(limit), x(to) - x(from), bottom - y(limit), bandFill);
      }
      add(R"(<path d="M{:.1f} {:.1f}H{:.1f}" stroke="{}" stroke-width="1.5" )"
          R"(stroke-dasharray="5 3"/>)",
          x(from), y(limit), x(to), limitInk);
    });
  }

  /// Draws a staircase of whole percents, because the helper reads and decides on these.
  void charge() {
    std::string points;
    const auto percent = [](const TimelineState& state) { return state.percent; };
    stretches(percent, [&](double from, double to, const TimelineState& state) {
      const std::string way = points.empty() ? fmt::format("M{:.1f} ", x(from)) : "V";
      points += fmt::format("{}{:.1f}H{:.1f}", way, y(state.percent), x(to));
    });
    add(R"(<path d="{}" fill="none" stroke="{}" stroke-width="2.5" stroke-linejoin="round"/>)",
        points, curve);
  }

  struct Lane {
    std::string_view name;
    /// The words for a state; empty where the lane shows nothing.
    std::function<std::string(const TimelineState&)> words;
    std::function<Colours(const TimelineState&)> colours;
  };

  static std::span<const Lane> allLanes() {
    const auto always = [](Colours colours) {
      return [colours](const TimelineState&) { return colours; };
    };
    const auto when = [](bool TimelineState::* field, std::string words) {
      return [field, words = std::move(words)](const TimelineState& state) {
        return state.*field ? words : std::string();
      };
    };
    static const std::array<Lane, 8> lanes{{
        {"limit",
         [](const TimelineState& state) {
           if (state.toppingOff) return std::string("topping off");
           if (!state.enforcing) return std::string();
           return state.limitPercent ? fmt::format("{} %", *state.limitPercent) : "?";
         },
         [](const TimelineState& state) {
           return state.toppingOff ? Colours{"#fde68a", "#92400e"} : Colours{"#fed7aa", "#9a3412"};
         }},
        {"charging",
         [](const TimelineState& state) {
           return std::string(state.chargingPaused ? "paused" : "allowed");
         },
         [](const TimelineState& state) {
           return state.chargingPaused ? Colours{"#fecaca", "#991b1b"}
                                       : Colours{"#bbf7d0", "#166534"};
         }},
        {"adapter", when(&TimelineState::adapterConnected, "connected"),
         always({"#fef08a", "#854d0e"})},
        {"inflow", when(&TimelineState::inflowInhibited, "inhibited"),
         always({"#e9d5ff", "#6b21a8"})},
        {"lid", when(&TimelineState::lidClosed, "closed"), always({"#d1d5db", "#374151"})},
        {"sleep", when(&TimelineState::asleep, "asleep"), always({"#c7d2fe", "#3730a3"})},
        {"helper", when(&TimelineState::helperRunning, "running"), always({"#a5f3fc", "#155e75"})},
        {"app", when(&TimelineState::clientConnected, "connected"), always({"#ddd6fe", "#5b21b6"})},
    }};
    return lanes;
  }
  static double laneCount() { return static_cast<double>(allLanes().size()); }

  void lanes() {
    double top = lanesTop;
    for (const Lane& lane : allLanes()) {
      text(plotLeft - 10, top + 12.5, 12, faint, lane.name, "end");
      add(R"(<rect x="{:.1f}" y="{:.1f}" width="{:.1f}" height="{}" rx="3" fill="#f3f4f6"/>)",
          plotLeft, top, plotRight - plotLeft, laneHeight);
      stretches(lane.words, [&](double from, double to, const TimelineState& state) {
        const std::string words = lane.words(state);
        if (words.empty()) return;
        const double width = std::max(x(to) - x(from), 1.5);
        const Colours colours = lane.colours(state);
        add(R"(<rect x="{:.1f}" y="{:.1f}" width="{:.1f}" height="{}" rx="3" fill="{}"/>)", x(from),
            top, width, laneHeight, colours.fill);
        if (textWidth(words, 11) + 10 < width) {
          text(x(from) + 6, top + 12, 11, colours.ink, words);
        }
      });
      top += laneStep;
    }
  }

  static std::string_view flagFill(TimelineMarkKind kind) {
    if (kind == TimelineMarkKind::Refusal || kind == TimelineMarkKind::Loss) return errorInk;
    if (kind == TimelineMarkKind::Event) return eventInk;
    return kind == TimelineMarkKind::Deed ? deedInk : ink;
  }

  /// Draws the flags, and the signs that count the marks without a flag. Every mark has its pole;
  /// flags and signs show their whole text under the pointer.
  void flags() {
    const TimelineFlags laid =
        layFlags(timeline.marks, [this](double time) { return x(time); }, plotRight);
    for (const TimelineFlag& flag : laid.flags) {
      const std::string_view fill = flagFill(flag.mark->kind);
      const double top = flag.row ? flagsTop + flagRow * static_cast<double>(*flag.row) : crowdTop;
      add(R"(<path d="M{0:.1f} {1:.1f}V{2:.1f}" stroke="{3}" opacity="0.45"/>)", flag.pole, top,
          plotBottom, fill);
      if (!flag.row) continue;
      add(R"(<g><title>{}</title><rect x="{:.1f}" y="{:.1f}" width="{:.1f}" height="14" rx="3" )"
          R"(fill="{}"/>)",
          escapedXML(timelineTooltip(*flag.mark)), flag.left, top, flag.width, fill);
      text(flag.left + 6, top + 10.5, timelineFlagSize, "#ffffff", flag.words);
      add("</g>");
    }
    for (const TimelineCrowd& crowd : laid.crowds) {
      add(R"(<g><title>{}</title><rect x="{:.1f}" y="{:.1f}" width="{:.1f}" height="13" rx="3" )"
          R"(fill="{}"/>)",
          crowd.tooltip(), crowd.left, crowdTop, crowd.width, faint);
      text(crowd.left + crowd.width / 2, crowdTop + 10, timelineCrowdSize, "#ffffff", crowd.words(),
           "middle");
      add("</g>");
    }
  }

  /// Marks where the story went wrong: a line through everything, and the text in a row of its own.
  void failures() {
    for (const TimelineMark& mark : timeline.marks) {
      if (mark.kind != TimelineMarkKind::Failure) continue;
      const std::string words = timelineTooltip(mark);
      add(R"(<g><title>{}</title><path d="M{:.1f} {:.1f}V{:.1f}" stroke="{}" stroke-width="2"/>)",
          escapedXML(words), x(mark.time), failureBase + 4, lanesTop + laneStep * laneCount(),
          errorInk);
      const bool leftHalf = x(mark.time) < (plotLeft + plotRight) / 2;
      text(leftHalf ? plotLeft : plotRight, failureBase, 12, errorInk,
           shortened(words, failureColumns), leftHalf ? "start" : "end", "bold");
      add("</g>");
    }
  }

  /// Log lines as numbers under the lanes and words below. Returns the height of the page.
  double logLines() {
    const double axis = lanesTop + laneStep * laneCount();
    double base = axis + 44;
    std::size_t number = 0;
    std::size_t unlisted = 0;
    double lastBadge = 0;
    for (const TimelineMark& mark : timeline.marks) {
      if (mark.kind != TimelineMarkKind::Log && mark.kind != TimelineMarkKind::Error) continue;
      const std::string_view fill = mark.kind == TimelineMarkKind::Error ? errorInk : "#475569";
      add(R"(<path d="M{:.1f} {:.1f}v5" stroke="{}" stroke-width="1.5"/>)", x(mark.time), axis - 8,
          fill);
      if (number == listedLines) {
        ++unlisted;
        continue;
      }
      ++number;
      if (x(mark.time) - lastBadge > 13) {
        lastBadge = x(mark.time);
        badge(lastBadge, plotBottom - 8, fill, number);
      }
      badge(34, base - 4, fill, number);
      text(50, base, 12, faint, timelineMoment(mark.time));
      text(208, base, 12, mark.kind == TimelineMarkKind::Error ? errorInk : ink,
           shortened(mark.text, lineColumns));
      base += listStep;
    }
    if (unlisted > 0) {
      text(208, base, 12, faint, fmt::format("and {} more log lines", unlisted));
      base += listStep;
    }
    return base + (number > 0 ? 4 : -12);
  }

  void badge(double centre, double middle, std::string_view fill, std::size_t number) {
    add(R"(<circle cx="{:.1f}" cy="{:.1f}" r="7" fill="{}"/>)", centre, middle, fill);
    text(centre, middle + 3.5, 9, "#ffffff", std::to_string(number), "middle");
  }

  const Timeline& timeline;
  double start = 0;
  double duration = 1;
  double lowest = 0;
  double highest = 100;
  std::string body;
};

}  // namespace

std::string timelineSVG(const Timeline& timeline) {
  if (timeline.samples.empty()) return {};
  return Drawing(timeline).svg();
}

bool writeTimeline(const std::string& file, const Timeline& timeline) {
  std::ofstream stream(file, std::ios::binary);
  stream << timelineSVG(timeline);
  stream.flush();
  return static_cast<bool>(stream);
}

}  // namespace virtualmac
