#include <algorithm>

#include "Tests/model/reference/Model.h"

// Keep-awake, clients, sleep, top-off and reset.

namespace model {

std::map<std::string, std::string> Model::states() const {
  const std::string gateState =
      lastOutcome.empty() ? "none" : lastOutcome.substr(0, lastOutcome.find(':'));
  return {
      {"limit", !polling              ? "idle"
                : record.limit == 100 ? "lifting"
                                      : "enforcing"},
      {"gate", gateState + (lastOutcome.empty() || lastOutcome.ends_with(":ok") ? "" : "-failed")},
      {"check", record.verified ? "verified" : "unverified"},
      {"discharge", record.discharging ? (armed ? "armed" : "running")
                    : record.reason    ? "stopped"
                                       : "none"},
      {"keep-awake", !armed                     ? "off"
                     : record.ownsSleepDisabled ? "own"
                                                : "found"},
      {"top-off", record.toppingOff ? "running" : "none"},
      {"clients", clients > 1    ? "several"
                  : clients == 1 ? "one"
                  : releaseTimer ? "grace"
                                 : "none"}};
}

// ---- keep-awake

void Model::setSleepDisabled(bool on, bool& done) {
  const std::int64_t code = expect("settingsSet SleepDisabled " + text(on)).code;
  done = code == 0;
  const std::string failed = "IOPMSetSystemPowerSetting(SleepDisabled, ";
  if (on && done) {
    log("ClamshellSleep", 0, "SleepDisabled=1 set — system will stay awake through lid-close");
  } else if (on) {
    log("ClamshellSleep", fault,
        failed + "true) failed: " + text(code) + " — clamshell keep-awake NOT active");
  } else if (done) {
    log("ClamshellSleep", 0, "SleepDisabled=0 cleared — normal lid-close sleep restored");
  } else {
    log("ClamshellSleep", error,
        failed + "false) failed: " + text(code) +
            " — will reset on reboot; consider `sudo pmset -a disablesleep 0`");
  }
}

void Model::disarm() {
  closedAt.reset();
  if (!armed) return;
  armed = false;
  if (!record.ownsSleepDisabled) {
    return say("clamshell keep-awake DISARMED (SleepDisabled left as found — set externally)");
  }
  bool done = false;
  setSleepDisabled(false, done);
  record.ownsSleepDisabled = false;
  persist();
  say("clamshell keep-awake DISARMED");
}

void Model::keepAwake(bool on) {
  const std::string name = "setClamshellKeepAwake";
  if (!on) {
    const bool stops = record.discharging && lidClosed();
    disarm();
    if (stops) {
      say("keep-awake disarmed under a closed lid — aborting active discharge");
      stopDischarge("clamshellDisarmed");
    }
    return reply(name);
  }
  const Values& settings = expect("settingsCopy").values;
  const auto found = settings.find("SleepDisabled");
  closedAt.reset();
  if (found != settings.end() && found->second == "b1" && !record.ownsSleepDisabled) {
    armed = true;
    say("clamshell keep-awake ARMED (SleepDisabled already set externally — not taking ownership)");
    return reply(name);
  }
  record.ownsSleepDisabled = true;
  if (!planted(7)) persist();
  setSleepDisabled(true, armed);
  if (armed) {
    say("clamshell keep-awake ARMED");
    return reply(name);
  }
  record.ownsSleepDisabled = false;
  persist();
  reply(name, Failure{"Could not keep the Mac awake for clamshell discharge (SleepDisabled write "
                      "failed).",
                      501,
                      {}});
}

// ---- clients

void Model::clientCame() {
  ++clients;
  cancel(releaseTimer);
  say("client connected (count=" + text(clients) + ')');
  if (polling || record.limit < 20 || record.limit > 100 || record.writtenAt == never) return;
  say("client connect — arming polling loop at limit=" + text(record.limit));
  loop(record.limit);
}

void Model::clientLeft() {
  clients = std::max<std::int64_t>(clients - 1, 0);
  say("client disconnected (count=" + text(clients) + ')');
  if (clients > 0) return;
  cancel(releaseTimer);
  releaseTimer = startTimer("30", planted(8) ? 31 : 30, 0, [this] {
    cancel(releaseTimer);
    if (clients == 0) suspend();
  });
}

void Model::suspend() {
  if (!polling && !record.discharging) {
    if (armed) {
      say("client gone with keep-awake armed but nothing enforcing — disarming");
      disarm();
    }
    return say("client gone — nothing to suspend (no active limit)");
  }
  if (record.discharging && armed) {
    return say(
        "client gone but armed clamshell discharge active — keeping enforcement (bounded by "
        "target/floor/max-duration)");
  }
  say("all clients gone — suspending enforcement, resuming normal charging (saved limit=" +
      text(record.limit) + " retained)");
  ++generation;
  cancel(polling);
  disarm();
  inflow(false);
  release();
  gate(false);
  record.discharging = record.heatPause = record.toppingOff = false;
  persist();
}

// ---- sleep

void Model::beforeSleep() {
  const Record before = record;
  if (before.discharging) {
    say("pre-sleep: aborting active force-discharge before sleep");
    stopDischarge("systemWillSleep");
  }
  if (!polling) return;
  const bool plugged = adapter();
  if (before.limit < 20 || before.limit > 99 || (!plugged && !before.discharging)) return;
  if (const Outcome failed = gate(true)) {
    return log("HelperImpl", error, "pre-sleep pause-write failed: " + failed->text);
  }
  say("pre-sleep CHTE pause-write succeeded");
}

// ---- top-off

void Model::topOff() {
  cancel(polling);
  inflow(false);
  disarm();
  release();
  record.discharging = false;
  if (const Outcome failed = gate(false)) {
    return reply("releaseLimitUntilFullThenRestore", failed);
  }
  record.writtenAt = expect("clockNow").real;
  record.toppingOff = true;
  persist();
  const std::uint64_t own = ++generation;
  reply("releaseLimitUntilFullThenRestore");
  cancel(topOffTimer);
  const auto ticks = std::make_shared<std::int64_t>(0);
  topOffTimer = startTimer(
      "5 5", 5, 5, [this, own, saved = record.limit, ticks] { topOffTick(own, saved, ++*ticks); });
}

void Model::topOffTick(std::uint64_t own, std::int64_t saved, std::int64_t ticks) {
  if (generation != own) {
    say("top-off restore loop superseded — bailing");
    return cancel(topOffTimer);
  }
  const auto percent = capacity();
  const bool full = percent && *percent >= (planted(9) ? 101 : 100);
  if (!full && ticks < 1440) return;
  if (!full) {
    log("HelperImpl", error,
        "top-off restore loop timed out without reaching 100% — restoring limit");
  }
  cancel(topOffTimer);
  record.toppingOff = false;
  persist();
  loop(saved);
  if (full) say("top-off complete — restored limit " + text(saved));
}

void Model::cancelTopOff() {
  if (record.toppingOff) {
    ++generation;
    record.writtenAt = expect("clockNow").real;
    record.toppingOff = false;
    persist();
    loop(record.limit);
  }
  reply("cancelTopUp");
}

// ---- reset and shutdown

void Model::restoreKeys(bool aloud) {
  for (const char* key : {"CHTE", "CH0B", "CH0C", "CHIE", "CH0I", "CH0J"}) {
    if (!present(key)) continue;
    const Outcome failed = write(key, std::string(key) == "CHTE" ? "00000000" : "00");
    if (failed && aloud) {
      log("HelperImpl", error, "resetAll: " + std::string(key) + " failed — " + failed->text);
    }
  }
}

void Model::restore(bool aloud) {
  ++generation;
  cancel(polling);
  if (!aloud || planted(10)) disarm();
  restoreKeys(aloud);
  if (offered) {
    bool verified = false;
    const Outcome failed = setNative(100, verified);
    if (failed && aloud) {
      log("HelperImpl", error, "resetAll: native limit restore failed — " + failed->text);
    }
  }
  if (aloud) disarm();
  release();
  releaseAll();
  record.writtenAt = expect("clockNow").real;
  record.discharging = record.heatPause = record.toppingOff = false;
  persist();
}

}  // namespace model
