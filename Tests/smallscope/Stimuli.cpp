#include "Tests/smallscope/Stimuli.h"

#include <algorithm>
#include <csignal>
#include <stdexcept>

#include "Tests/smallscope/Scope.h"

namespace smallscope {

namespace {

void unplugOrPlugIn(Scope& scope) {
  virtualmac::Adapter& adapter = scope.mac().adapter;
  adapter.isConnected() ? adapter.disconnect() : adapter.connect();
}

void closeOrOpen(Scope& scope) {
  virtualmac::Lid& lid = scope.mac().lid;
  lid.isClosed() ? lid.open() : lid.close();
}

void crash(Scope& scope) {
  if (scope.world().helperRunning()) scope.world().killHelper();
}

// clang-format off: one stimulus a line.
constexpr Stimulus all[] = {
    {"limit", [](Scope& scope) { scope.client().setChargeLimit(70); }},
    {"clear", [](Scope& scope) { scope.client().clearChargeLimit(); }},
    {"discharge", [](Scope& scope) { scope.client().forceDischarge(true); }},
    {"stop", [](Scope& scope) { scope.client().forceDischarge(false); }},
    {"keep-awake", [](Scope& scope) { scope.client().setClamshellKeepAwake(true); }},
    {"let-sleep", [](Scope& scope) { scope.client().setClamshellKeepAwake(false); }},
    {"top-off", [](Scope& scope) { scope.client().releaseLimitUntilFullThenRestore(); }},
    {"cancel", [](Scope& scope) { scope.client().cancelTopUp(); }},
    {"reset", [](Scope& scope) { scope.client().resetAllSMCKeys(); }},
    {"quit", [](Scope& scope) { scope.client().quit(); }},
    {"leave", [](Scope& scope) { scope.leave(); }},
    {"adapter", unplugOrPlugIn},
    {"lid", closeOrOpen},
    {"up", [](Scope& scope) { scope.mac().battery.setPercent(100); }},
    {"down", [](Scope& scope) { scope.mac().battery.setPercent(60); }},
    {"sleep", [](Scope& scope) { scope.mac().power.requestSleep(); }},
    {"wake", [](Scope& scope) { scope.mac().power.wake(); }},
    {"crash", crash},
    {"terminate", [](Scope& scope) { scope.world().sendSignal(SIGTERM); }},
    {"power-loss", [](Scope& scope) { scope.world().powerLoss(); }},
    {"tick", [](Scope&) {}, 5.5},
    {"half-minute", [](Scope&) {}, 31},
    {"smc-fault", [](Scope& scope) { scope.toggle("smc-reopen-fails"); }},
    {"disk-fault", [](Scope& scope) { scope.toggle("disk-full"); }},
    {"gauge-fault", [](Scope& scope) { scope.toggle("battery-unreadable"); }},
    {"heat", [](Scope& scope) { scope.toggle("temperature-override 47"); }},
};
// clang-format on

}  // namespace

std::span<const Stimulus> stimuli() { return all; }

std::uint64_t sequenceCount(std::size_t longest) {
  std::uint64_t count = 0;
  std::uint64_t ofOneLength = 1;
  for (std::size_t length = 1; length <= longest; ++length) {
    ofOneLength *= stimuli().size();
    count += ofOneLength;
  }
  return count;
}

Sequence sequenceOf(std::uint64_t number) {
  std::size_t length = 1;
  while (number >= sequenceCount(length)) ++length;
  std::uint64_t rest = number - sequenceCount(length - 1);
  Sequence sequence(length);
  for (std::size_t& each : sequence) {
    each = rest % stimuli().size();
    rest /= stimuli().size();
  }
  return sequence;
}

std::string textOf(const Sequence& sequence) {
  std::string text;
  for (const std::size_t each : sequence) {
    text += (text.empty() ? "" : ",") + std::string(stimuli()[each].name);
  }
  return text;
}

Sequence sequenceFrom(std::string_view text) {
  Sequence sequence;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    const std::string_view name = text.substr(begin, end - begin);
    const auto found = std::ranges::find(stimuli(), name, &Stimulus::name);
    if (found == stimuli().end()) {
      std::string known;
      for (const Stimulus& each : stimuli()) known += " " + std::string(each.name);
      throw std::invalid_argument("no stimulus is called \"" + std::string(name) +
                                  "\"; there are:" + known);
    }
    sequence.push_back(static_cast<std::size_t>(found - stimuli().begin()));
    begin = end + 1;
  }
  return sequence;
}

}  // namespace smallscope
