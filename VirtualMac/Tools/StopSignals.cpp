#include "VirtualMac/Tools/StopSignals.h"

#include <array>
#include <atomic>

namespace virtualmac {

namespace {

struct Known {
  int number;
  const char* name;
};
constexpr std::array<Known, 3> stopping{
    {{SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}, {SIGHUP, "SIGHUP"}}};

constexpr int statusOfSignal = 128;

std::atomic<int> noted{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler must not wait for a lock");

void note(int number) { noted = number; }

}  // namespace

StopSignals::StopSignals(bool secondEnds) {
  noted = 0;
  for (const Known& known : stopping) {
    struct sigaction old{};
    ::sigaction(known.number, nullptr, &old);
    if (old.sa_handler == SIG_IGN) continue;
    struct sigaction noting{};
    noting.sa_handler = note;
    noting.sa_flags = SA_RESTART;
    if (secondEnds) noting.sa_flags |= static_cast<int>(SA_RESETHAND);
    sigemptyset(&noting.sa_mask);
    ::sigaction(known.number, &noting, nullptr);
    before.emplace_back(known.number, old);
  }
}

StopSignals::~StopSignals() {
  for (const auto& [number, old] : before) ::sigaction(number, &old, nullptr);
}

std::optional<int> StopSignals::caught() const {
  const int number = noted;
  return number == 0 ? std::nullopt : std::optional(number);
}

std::string signalName(int number) {
  for (const Known& known : stopping) {
    if (known.number == number) return known.name;
  }
  return "signal " + std::to_string(number);
}

int endBySignal(int number) {
  ::raise(number);
  return statusOfSignal + number;
}

}  // namespace virtualmac
