#include "Tests/sweeps/StoryTools.h"

#include <iterator>
#include <utility>

namespace sweeps {

MachineSetup batteryAt(double percent) {
  return [percent](virtualmac::Machine& mac) { mac.battery.setPercent(percent); };
}

void beginWithLimit(Stage& stage, std::uint8_t percent, double seconds) {
  stage.join();
  stage.expect(stage.setLimit(percent), "the limit is accepted");
  if (seconds > 0) stage.run(seconds);
}

void beginTopOff(Stage& stage, std::uint8_t limit) {
  beginWithLimit(stage, limit);
  stage.expect(stage.ask(stage.app().releaseLimitUntilFullThenRestore()), "the top-off starts");
}

void beginDischarge(Stage& stage, std::uint8_t limit, double seconds) {
  beginWithLimit(stage, limit);
  stage.expect(stage.ask(stage.app().forceDischarge(true)), "the discharge starts");
  stage.expect(stage.mac().smc.inflowInhibited(), "the adapter's inflow is inhibited");
  if (seconds > 0) stage.run(seconds);
}

void beginLidClosedDischarge(Stage& stage, std::uint8_t limit) {
  beginWithLimit(stage, limit);
  stage.expect(stage.ask(stage.app().setClamshellKeepAwake(true)), "keep-awake is armed");
  stage.expect(stage.ask(stage.app().forceDischarge(true)), "the discharge starts");
  stage.mac().lid.close();
  stage.run(6);
  stage.expect(stage.mac().smc.inflowInhibited(), "the discharge goes on under the closed lid");
}

bool stoppedFor(Stage& stage, std::string_view reason) {
  return stage.world.logCount("force-discharge auto-stopped: reason=" + std::string(reason)) == 1;
}

const std::vector<Story>& stories() {
  static const std::vector<Story> all = [] {
    std::vector<Story> list;
    for (auto* room :
         {limitStories, dischargeStories, keepAwakeStories, lifeStories, machineStories}) {
      std::vector<Story> some = room();
      std::move(some.begin(), some.end(), std::back_inserter(list));
    }
    return list;
  }();
  return all;
}

}  // namespace sweeps
