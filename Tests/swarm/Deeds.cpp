#include "Tests/swarm/Deeds.h"

#include <array>
#include <csignal>

#include "HelperPersistence.h"
#include "Tests/swarm/Swarm.h"

namespace swarm {

namespace {

using virtualmac::AppClient;

/// Lets one of the clients act, if there is any.
template <class Act>
void byClient(Swarm& swarm, Act act) {
  if (AppClient* client = swarm.someClient()) act(*client);
}

void limitOf(Swarm& swarm, std::int64_t low, std::int64_t high) {
  const auto limit = static_cast<std::uint8_t>(swarm.random.between(low, high));
  byClient(swarm, [limit](AppClient& client) { client.setChargeLimit(limit); });
}

void moveClock(Swarm& swarm) {
  const double seconds = static_cast<double>(swarm.random.between(-7200, 7200));
  const korvel::Date now = swarm.mac().wallClock();
  swarm.mac().setWallClock({now.secondsSinceReference + seconds});
}

void connectStranger(Swarm& swarm) {
  constexpr std::array strangers{"other-identifier", "other-team", "unsigned", "ad-hoc", "apple"};
  swarm.connect(strangers.at(swarm.random.below(strangers.size())));
}

void sendNonsense(Swarm& swarm) {
  byClient(swarm, [](AppClient& client) { client.send("setChargeLimit:"); });
}

void burst(Swarm& swarm) {
  byClient(swarm, [&swarm](AppClient& client) {
    client.setChargeLimit(static_cast<std::uint8_t>(swarm.random.between(20, 100)));
    client.setClamshellKeepAwake(true);
    client.forceDischarge(true);
    if (swarm.random.chance(1, 2)) client.releaseLimitUntilFullThenRestore();
    if (swarm.random.chance(1, 2)) client.forceDischarge(false);
    if (swarm.random.chance(1, 2)) client.getState();
  });
}

void kill(Swarm& swarm) {
  if (swarm.world().helperRunning()) swarm.world().killHelper();
}

void signal(Swarm& swarm) {
  constexpr std::array numbers{SIGTERM, SIGINT, SIGABRT};
  if (!swarm.world().helperRunning()) return;
  swarm.world().sendSignal(numbers.at(swarm.random.below(numbers.size())));
}

void sleep(Swarm& swarm) { swarm.mac().power.requestSleep(); }

// clang-format off: one deed a line.
constexpr Deed all[] = {
    {"connect", [](Swarm& swarm) { swarm.connect("app"); }},
    {"connectAgain", [](Swarm& swarm) { swarm.connect("app"); }},
    {"connectStranger", connectStranger},
    {"comeAndGo", [](Swarm& swarm) { swarm.comeAndGo(); }},
    {"disconnect", [](Swarm& swarm) { byClient(swarm, [&](AppClient& client) { client.disconnect(); swarm.forgetClient(client); }); }},
    {"clientDies", [](Swarm& swarm) { byClient(swarm, [&](AppClient& client) { client.kill(); swarm.forgetClient(client); }); }},
    {"connectionBreaks", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.interrupt(); }); }},
    {"setLimit", [](Swarm& swarm) { limitOf(swarm, 20, 100); }},
    {"setLowLimit", [](Swarm& swarm) { limitOf(swarm, 20, 50); }},
    {"setAnyLimit", [](Swarm& swarm) { limitOf(swarm, 0, 255); }},
    {"clearLimit", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.clearChargeLimit(); }); }},
    {"startDischarge", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.forceDischarge(true); }); }},
    {"stopDischarge", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.forceDischarge(false); }); }},
    {"armKeepAwake", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.setClamshellKeepAwake(true); }); }},
    {"disarmKeepAwake", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.setClamshellKeepAwake(false); }); }},
    {"topOff", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.releaseLimitUntilFullThenRestore(); }); }},
    {"cancelTopOff", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.cancelTopUp(); }); }},
    {"reset", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.resetAllSMCKeys(); }); }},
    {"ask", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.getState(); client.capabilities(); client.ping(); }); }},
    {"burst", burst},
    {"sendNonsense", sendNonsense},
    {"quit", [](Swarm& swarm) { byClient(swarm, [](AppClient& client) { client.quit(); }); }},
    {"kill", kill},
    {"signal", signal},
    {"powerLoss", [](Swarm& swarm) { if (swarm.random.chance(1, 3)) swarm.world().powerLoss(); }},
    {"plugIn", [](Swarm& swarm) { swarm.mac().adapter.connect(); }},
    {"unplug", [](Swarm& swarm) { swarm.mac().adapter.disconnect(); }},
    {"renegotiate", [](Swarm& swarm) { swarm.mac().adapter.renegotiate(); }},
    {"closeLid", [](Swarm& swarm) { swarm.mac().lid.close(); }},
    {"openLid", [](Swarm& swarm) { swarm.mac().lid.open(); }},
    {"plugDisplayIn", [](Swarm& swarm) { swarm.mac().lid.connectDisplay(); }},
    {"unplugDisplay", [](Swarm& swarm) { swarm.mac().lid.disconnectDisplay(); }},
    {"gaugeJumps", [](Swarm& swarm) { swarm.mac().battery.setPercent(static_cast<double>(swarm.random.between(3, 100))); }},
    {"getsHot", [](Swarm& swarm) { swarm.mac().battery.setAmbientCelsius(static_cast<double>(swarm.random.between(10, 45))); }},
    {"anotherProgramTurnsSleepOff", [](Swarm& swarm) { swarm.mac().power.setSleepDisabledExternally(swarm.random.chance(1, 2)); }},
    {"sleep", sleep},
    {"wake", [](Swarm& swarm) { swarm.mac().power.wake(); }},
    {"wakeAgain", [](Swarm& swarm) { swarm.mac().power.wake(); }},
    {"userActivity", [](Swarm& swarm) { swarm.mac().power.userActivity(); }},
    {"idleSleep", [](Swarm& swarm) { swarm.mac().power.setIdleSleepMinutes(swarm.random.between(0, 3)); }},
    {"clockIsSet", moveClock},
};
// clang-format on

}  // namespace

std::span<const Deed> deeds() { return all; }

}  // namespace swarm
