#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace benchmarks {

/// How long each of many answers took.
class Latencies {
 public:
  using Clock = std::chrono::steady_clock;

  /// Calls `ask` and notes how long it took. Returns what it does.
  bool time(const auto& ask) {
    const auto begin = Clock::now();
    const bool answered = ask();
    all.push_back(std::chrono::duration<double, std::nano>(Clock::now() - begin).count());
    return answered;
  }

  /// Nanoseconds within which so great a part of them came, 0.99 for one.
  [[nodiscard]] double within(double part) const {
    std::vector<double> sorted = all;
    std::ranges::sort(sorted);
    const auto place = static_cast<std::size_t>(part * static_cast<double>(sorted.size()));
    return sorted.empty() ? 0 : sorted[std::min(place, sorted.size() - 1)];
  }

 private:
  std::vector<double> all;
};

}  // namespace benchmarks
