#include <algorithm>
#include <array>
#include <csignal>
#include <memory>

#include "Tests/model/Story.h"
#include "Tests/model/reference/Record.h"
#include "VirtualMac/Machine/Faults.h"
#include "VirtualMac/Machine/Launchd.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/FaultTable.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace model {

namespace {

using virtualmac::AppClient;

/// Plays one story in a world of its own.
class Player {
 public:
  explicit Player(const Story& told) : story(told), world(options()) {
    recorder.attach(world);
    world.launchd().job.startOnDemand = story.onDemand;
    if (story.profile != "desktop") world.machine().battery.setPercent(story.percent);
  }
  ~Player() { world.observers().remove(recorder); }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  Played play() {
    for (const Deed& deed : story.deeds) {
      act(deed);
      world.runFor(deed.seconds);
    }
    Played run{.order = recorder.order() + 1, .at = recorder.now()};
    run.trace = recorder.trace();
    run.outcomes = recorder.outcomes();
    return run;
  }

 private:
  struct Act {
    std::string_view name;
    void (*act)(Player&, const Deed&);
  };
  static const std::array<Act, 39> acts;

  virtualmac::WorldOptions options() {
    virtualmac::WorldOptions chosen;
    chosen.profile = story.profile;
    chosen.seed = story.seed;
    if (story.anyOrder) chosen.scheduling = virtualmac::Scheduling::Seeded;
    chosen.entry = [this](korvel::Platform& platform) { return recorder.run(platform); };
    return chosen;
  }

  void act(const Deed& deed) {
    std::ranges::find(acts, std::string_view(deed.name), &Act::name)->act(*this, deed);
  }

  void connect(std::string_view identity = "app") {
    constexpr std::size_t most = 4;
    if (clients.size() >= most) return;
    clients.push_back(world.connectApp(identity));
    send("pingWithReply:", 0);
  }
  void disconnect(std::int64_t which) {
    if (clients.empty()) return;
    clients.erase(clients.begin() + which % static_cast<std::int64_t>(clients.size()));
  }
  /// The client that came last sends; the others only stay.
  void send(std::string_view selector, std::int64_t value) {
    if (clients.empty()) return;
    recorder.remember(clients.back()->send(selector, static_cast<std::uint8_t>(value)), value);
  }
  /// Leaves the record of an earlier helper; each bit chooses one of its values.
  void leaveRecord(std::uint64_t bits) {
    const auto next = [&bits](std::uint64_t choices) {
      const std::uint64_t chosen = bits % choices;
      bits /= choices;
      return chosen;
    };
    const bool whole = next(8) != 0;
    Record record{.limit = std::array{80, 100, 20, 19}.at(next(4)),
                  .band = std::array{5, 0, 30, -2}.at(next(4))};
    record.discharging = next(2) == 1;
    record.ownsSleepDisabled = next(2) == 1;
    if (next(2) == 1) record.writtenAt = 790000000;
    record.toppingOff = !record.discharging;
    record.reason = "Discharge stopped.";
    record.reasonAt = 780000000;
    leaveFiles(whole ? fileText(record) : "{");
  }
  void leaveFiles(const std::string& record) {
    virtualmac::Machine& mac = world.machine();
    const std::string directory = "/Library/Application Support/com.korvel.app.helper";
    mac.disk.makeDirectory(directory, 0755);
    mac.disk.writeFile(directory + "/state.json", record, 0600);
    mac.disk.writeFile(directory + "/state.json.tmp", "{", 0600);
  }
  static virtualmac::SeamCall seamCall(std::string_view id) {
    const auto found =
        std::ranges::find(virtualmac::seamCalls, id, &virtualmac::SeamCallDescription::id);
    return static_cast<virtualmac::SeamCall>(found - virtualmac::seamCalls.begin());
  }
  void failCall(const Deed& deed) {
    const virtualmac::SeamCall call = seamCall(deed.fault);
    inject(deed, virtualmac::plainFault(call).value_or(virtualmac::InjectedFault{}));
  }
  void inject(const Deed& deed, const virtualmac::InjectedFault& fault) {
    world.faults().failNth(seamCall(deed.fault), static_cast<std::uint64_t>(deed.value), fault);
  }
  void changeAnswer(const Deed& deed) {
    virtualmac::InjectedFault fault;
    fault.changesAnswer = true;
    inject(deed, fault);
  }
  void signWithQuote() {
    virtualmac::SigningIdentity identity = *world.machine().signatures.identity("helper");
    identity.team = "AB\"CD";
    world.machine().signatures.define(identity);
  }
  void start() {
    if (!world.helperRunning()) world.startHelper();
  }

  Recorder recorder;
  const Story& story;
  virtualmac::World world;
  std::vector<std::unique_ptr<AppClient>> clients;
};

// clang-format off: one deed a line.
const std::array<Player::Act, 39> Player::acts{{
    {"start", [](Player& to, const Deed&) { to.start(); }},
    {"kill", [](Player& to, const Deed&) { to.world.killHelper(); }},
    {"signal", [](Player& to, const Deed& deed) { to.world.sendSignal(std::array{SIGTERM, SIGINT, SIGABRT}.at(static_cast<std::size_t>(deed.value))); }},
    {"connect", [](Player& to, const Deed&) { to.connect(); }},
    {"disconnect", [](Player& to, const Deed& deed) { to.disconnect(deed.value); }},
    {"setLimit", [](Player& to, const Deed& deed) { to.send("setChargeLimit:reply:", deed.value); }},
    {"setAnyLimit", [](Player& to, const Deed& deed) { to.send("setChargeLimit:reply:", deed.value); }},
    {"clearLimit", [](Player& to, const Deed&) { to.send("clearChargeLimitWithReply:", 0); }},
    {"discharge", [](Player& to, const Deed& deed) { to.send("forceDischarge:reply:", deed.value); }},
    {"keepAwake", [](Player& to, const Deed& deed) { to.send("setClamshellKeepAwake:reply:", deed.value); }},
    {"topOff", [](Player& to, const Deed&) { to.send("releaseLimitUntilFullThenRestoreWithReply:", 0); }},
    {"cancelTopOff", [](Player& to, const Deed&) { to.send("cancelTopUpWithReply:", 0); }},
    {"reset", [](Player& to, const Deed&) { to.send("resetAllSMCKeysWithReply:", 0); }},
    {"ask", [](Player& to, const Deed&) { to.send("getStateWithReply:", 0); to.send("capabilitiesWithReply:", 0); }},
    {"quit", [](Player& to, const Deed&) { to.send("quit", 0); }},
    {"plug", [](Player& to, const Deed& deed) { deed.value != 0 ? to.world.machine().adapter.connect() : to.world.machine().adapter.disconnect(); }},
    {"lid", [](Player& to, const Deed& deed) { deed.value != 0 ? to.world.machine().lid.close() : to.world.machine().lid.open(); }},
    {"battery", [](Player& to, const Deed& deed) { to.world.machine().battery.setPercent(static_cast<double>(deed.value)); }},
    {"ambient", [](Player& to, const Deed& deed) { to.world.machine().battery.setAmbientCelsius(static_cast<double>(deed.value)); }},
    {"sleepSetting", [](Player& to, const Deed& deed) { to.world.machine().power.setSleepDisabledExternally(deed.value != 0); }},
    {"sleep", [](Player& to, const Deed&) { to.world.machine().power.requestSleep(); }},
    {"wake", [](Player& to, const Deed&) { to.world.machine().power.wake(); }},
    {"wait", [](Player&, const Deed&) {}},
    {"clock", [](Player& to, const Deed& deed) { to.world.machine().setWallClock({to.world.machine().wallClock().secondsSinceReference + static_cast<double>(deed.value)}); }},
    {"powerLoss", [](Player& to, const Deed&) { to.world.powerLoss(); }},
    {"stranger", [](Player& to, const Deed& deed) { to.connect(std::array{"other-identifier", "other-team", "unsigned", "ad-hoc", "apple"}.at(static_cast<std::size_t>(deed.value))); }},
    {"nonsense", [](Player& to, const Deed&) { to.send("setChargeLimit:", 0); }},
    {"renegotiate", [](Player& to, const Deed&) { to.world.machine().adapter.renegotiate(); }},
    {"display", [](Player& to, const Deed& deed) { deed.value != 0 ? to.world.machine().lid.connectDisplay() : to.world.machine().lid.disconnectDisplay(); }},
    {"idle", [](Player& to, const Deed& deed) { to.world.machine().power.setIdleSleepMinutes(deed.value); }},
    {"activity", [](Player& to, const Deed&) { to.world.machine().power.userActivity(); }},
    {"record", [](Player& to, const Deed& deed) { to.leaveRecord(static_cast<std::uint64_t>(deed.value)); }},
    {"foreignRecord", [](Player& to, const Deed& deed) { to.leaveFiles(foreignRecord(static_cast<std::uint64_t>(deed.value))); }},
    {"fault", [](Player& to, const Deed& deed) { static_cast<void>(virtualmac::setFault(to.world.machine(), deed.fault, deed.value != 0)); }},
    {"interrupt", [](Player& to, const Deed&) { if (!to.clients.empty()) to.clients.back()->interrupt(); }},
    {"oddTeam", [](Player& to, const Deed&) { to.signWithQuote(); }},
    {"latency", [](Player& to, const Deed& deed) { to.world.faults().setLatency(seamCall(deed.fault), static_cast<double>(deed.value) / 100); }},
    {"callFault", [](Player& to, const Deed& deed) { to.failCall(deed); }},
    {"changedAnswer", [](Player& to, const Deed& deed) { to.changeAnswer(deed); }},
}};
// clang-format on

}  // namespace

Played played(const Story& story) { return Player(story).play(); }

}  // namespace model
