#include "VirtualMac/Tools/ProgressLine.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "VirtualMac/Timeline/Timeline.h"
#include "VirtualMac/Timeline/TimelineText.h"

namespace virtualmac {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds quietFor{2};
constexpr std::chrono::milliseconds showEvery{200};
constexpr std::size_t usualColumns = 80;
constexpr const char* wipe = "\r\033[K";

std::size_t terminalColumns() {
  winsize size{};
  const bool known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : usualColumns;
}

}  // namespace

ProgressLine::ProgressLine(std::string begin, bool isWanted)
    : title(std::move(begin)),
      wanted(isWanted && ::isatty(STDERR_FILENO) == 1),
      due(Clock::now() + quietFor) {}

ProgressLine::~ProgressLine() {
  if (!shown) return;
  fmt::print(stderr, "{}", wipe);
  std::fflush(stderr);
}

void ProgressLine::show(double now, double end) {
  if (!wanted || Clock::now() < due) return;
  due = Clock::now() + showEvery;
  shown = true;
  const double part = end > 0 ? std::clamp(now / end, 0.0, 1.0) : 1;
  const std::string figures = fmt::format("  {} of {} ({:.0f} %)", timelineClock(now),
                                          timelineClock(end), std::floor(part * 100));
  // A wrapped line could not be wiped away, so the last column and a cut mark's place stay free.
  const std::size_t columns = terminalColumns();
  const std::size_t taken = std::min(columns, figures.size() + 2);
  fmt::print(stderr, "{}{}{}", wipe, shortened(title, columns - taken), figures);
  std::fflush(stderr);
}

}  // namespace virtualmac
