#include "Tests/sweeps/Stage.h"

#include <algorithm>

#include "Tests/sweeps/Checks.h"

namespace sweeps {

namespace {

virtualmac::WorldOptions optionsFor(const Story& story, std::uint64_t seed,
                                    virtualmac::Scheduling scheduling) {
  virtualmac::WorldOptions options;
  options.profile = story.profile;
  options.seed = seed;
  options.scheduling = scheduling;
  return options;
}

constexpr double answerLimitSeconds = 20;

}  // namespace

Stage::Stage(const Story& told, std::uint64_t seed, virtualmac::Scheduling scheduling)
    : world(optionsFor(told, seed, scheduling)), story(told) {
  // The sweeps decide when a dead helper is started again.
  world.launchd().job.startOnDemand = false;
  if (story.prepare) story.prepare(mac());
  const auto record = recordOnDisk(mac());
  const bool claimed = record && record->sleepDisabledByKorvel;
  sleepDisabledByOther = mac().power.sleepDisabled() && !claimed;
  sleepDisabledByEarlierHelper = mac().power.sleepDisabled() && claimed;
}

bool Stage::play() {
  try {
    world.startHelper();
    run(0.1);
    story.play(*this);
    return true;
  } catch (const HelperDied&) {
    return false;
  }
}

virtualmac::AppClient& Stage::join() {
  clients.push_back(world.connectApp());
  // A connection reaches the listener only with its first message.
  ask(app().ping());
  return app();
}

bool Stage::ask(const virtualmac::AppCallRef& call) {
  world.runUntil([&] { return call->over() || !world.helperRunning(); }, answerLimitSeconds);
  leaveWhenDead();
  return call->answered && call->success;
}

bool Stage::setLimit(std::uint8_t percent) {
  wanted = percent;
  return ask(app().setChargeLimit(percent));
}

void Stage::run(double seconds) {
  world.runUntil([this] { return !world.helperRunning(); }, seconds);
  leaveWhenDead();
}

void Stage::until(const std::function<bool()>& reached, double limitSeconds,
                  std::string_view what) {
  bool held = false;
  world.runUntil([&] { return (held = reached()) || !world.helperRunning(); }, limitSeconds);
  leaveWhenDead();
  expect(held, what);
}

void Stage::expect(bool holds, std::string_view what) {
  if (!holds) unmet.emplace_back(what);
}

void Stage::sleepAndWake(double seconds) {
  mac().power.requestSleep();
  run(seconds);
  mac().power.wake();
  run(0.1);
}

void Stage::leaveWhenDead() {
  if (!world.helperRunning() && !exited()) throw HelperDied{};
}

const Story& storyNamed(std::string_view name) {
  const std::vector<Story>& all = stories();
  const auto found =
      std::find_if(all.begin(), all.end(), [name](const Story& each) { return each.name == name; });
  if (found == all.end()) throw std::invalid_argument("no story \"" + std::string(name) + '"');
  return *found;
}

}  // namespace sweeps
