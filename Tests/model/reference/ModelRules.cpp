#include <algorithm>

#include "Tests/model/reference/Model.h"

// The rules of charging, discharging, keep-awake, clients, sleep and top-off.

namespace model {

namespace {

constexpr std::int64_t outOfRange = 400, unsupported = 503;

bool isLimit(std::int64_t percent) { return percent >= 20 && percent <= 100; }

const std::map<std::string, std::string> banners{
    {"floorReached", "Discharge stopped — battery reached the safety floor."},
    {"targetReached", "Discharge complete — battery is at the configured limit."},
    {"lidClosed",
     "Discharge stopped — closing the lid is unsafe with the adapter inflow disabled. Reopen the "
     "lid and restart if you still want to drain."},
    {"systemWillSleep",
     "Discharge stopped — system was about to sleep. Restart the discharge once you're back."},
    {"clamshellTimeout",
     "Clamshell discharge stopped — reached its safety time limit to avoid heat build-up with the "
     "lid closed. Restart it if you still want to drain."},
    {"clamshellOverheated",
     "Clamshell discharge stopped — the battery got too warm with the lid closed. Let it cool "
     "down, then restart if you still want to drain."},
    {"clamshellDisarmed",
     "Clamshell discharge stopped — the external display was disconnected (or the experimental "
     "option was turned off). Reopen the lid or reconnect a display to drain again."},
    {"chargeInhibitLost",
     "Discharge stopped — the battery started charging again (the power adapter re-negotiated). "
     "Restart discharge if you still want to drain to the limit."}};

}  // namespace

// ---- commands

void Model::read(const Item& message) {
  // Where it is cut off before its reply, nothing is compared.
  begin(message);
  if (!more() || !upcoming()->answer.given) return;
  // The reader takes its copy at some moment between its beginning and its reply.
  auto version = std::prev(history.upper_bound(upcoming()->order));
  const auto words = [&] { return "reply getState ok " + replyText(version->second.record); };
  while (words() != upcoming()->text && version->second.surely > order() &&
         version != history.begin()) {
    --version;
  }
  Script::expect(words());
  finish();
}

void Model::checkReads(const Item* next) {
  // Work that changes the record may begin before the reply.
  std::erase_if(reads, [&](const Item* each) {
    const bool over = next == nullptr || next->cause == Cause::End ||
                      (each->ended && each->endOrder < next->order);
    if (over) read(*each);
    return over;
  });
}

void Model::message() {
  const auto of = [this](const char* selector) { return item().text == selector; };
  const std::int64_t value = item().argument;
  const std::string flag = '(' + text(value != 0) + ')';
  if (of("pingWithReply:")) {
    expect("reply ping " + text(pid));
  } else if (of("getStateWithReply:")) {
    reads.push_back(&item());
    throw CutOff{};
  } else if (of("capabilitiesWithReply:")) {
    const auto word = [](bool holds) { return holds ? "true" : "false"; };
    expect(std::string("reply capabilities ok {\"tahoeCharging\":") + word(newerCharge) +
           ",\"preTahoeCharging\":" + word(olderCharge) + ",\"tahoeDischarge\":" +
           word(newerDrain) + ",\"preTahoeDischarge\":" + word(olderDrain) +
           ",\"nativeCharging\":" + word(offered.has_value()) + '}');
  } else if (of("setChargeLimit:reply:")) {
    say("setChargeLimit(" + text(value) + ')' + caller(item().number, true));
    if (isLimit(value)) {
      post([this, value] { setLimit(value); });
      return;
    }
    reply(
        "setChargeLimit",
        Failure{
            "Charge limit must be between 20 and 100 (got " + text(value) + ").", outOfRange, {}});
  } else if (of("clearChargeLimitWithReply:")) {
    command("clearChargeLimit", "", [this] { clearLimit(); });
  } else if (of("forceDischarge:reply:")) {
    command("forceDischarge", flag, [this, value] {
      if (value != 0) {
        reply("forceDischarge", startDischarge());
      } else {
        const Outcome failed = inflow(false);
        if (record.limit >= 20 && record.limit <= 99 && adapter()) {
          const auto percent = capacity();
          if (percent && *percent >= record.limit) gate(true);
        }
        disarm();
        lowest.reset();
        release();
        record.writtenAt = expect("clockNow").real;
        record.discharging = false;
        persist();
        reply("forceDischarge", failed);
      }
    });
  } else if (of("setClamshellKeepAwake:reply:")) {
    say("setClamshellKeepAwake" + flag + caller(item().number, false));
    post([this, value] { keepAwake(value != 0); });
  } else if (of("releaseLimitUntilFullThenRestoreWithReply:")) {
    command("releaseLimitUntilFullThenRestore", "", [this] { topOff(); });
  } else if (of("cancelTopUpWithReply:")) {
    command("cancelTopUp", "", [this] { cancelTopOff(); });
  } else if (of("resetAllSMCKeysWithReply:")) {
    command("resetAllSMCKeys", "", [this] {
      restore(true);
      reply("resetAllSMCKeys");
    });
  } else if (of("quit")) {
    say("quit() received pid=" + text(pid));
    shutDown();
  }
}

void Model::command(const std::string& name, const std::string& words, const Duty& body) {
  say(name + words + caller(item().number, true));
  post(body);
}

void Model::setLimit(std::int64_t percent) {
  ++generation;
  record.writtenAt = expect("clockNow").real;
  record.limit = percent;
  record.heatPause = record.toppingOff = false;
  persist();
  loop(planted(3) ? record.limit - 1 : percent);
  reply("setChargeLimit");
}

void Model::clearLimit() {
  ++generation;
  cancel(polling);
  disarm();
  const Outcome failed = gate(false);
  inflow(false);
  release();
  record.writtenAt = expect("clockNow").real;
  record.discharging = record.heatPause = record.toppingOff = false;
  persist();
  reply("clearChargeLimit", failed);
}

// ---- enforcement

void Model::loop(std::int64_t target) {
  cancel(polling);
  polling = startTimer("0 5", 0, 5, [this, target] { tick(target); });
}

void Model::tick(std::int64_t target) {
  if (!isLimit(target)) {
    log("HelperImpl", fault, "pollOnce: target " + text(target) + " out of range — stopping loop");
    return cancel(polling);
  }
  if (record.discharging) return watch(target);
  const auto percent = capacity();
  const bool plugged = adapter();
  if (target == 100) {
    if (gate(false) || !record.verified) return;
    cancel(polling);
    return say("100% target — returned charging to macOS and stopped enforcement");
  }
  if (!plugged || !percent) return;
  std::int64_t band = std::clamp<std::int64_t>(record.band, 1, 20);
  band = std::min(band, target - 1);
  if (*percent >= target + (planted(4) ? 1 : 0)) {
    report("pause", gate(true));
  } else if (*percent < target - band + (planted(5) ? 1 : 0)) {
    report("resume", gate(false));
  }
}

void Model::report(const std::string& action, const Outcome& failure) {
  const std::string outcome = action + ':' + (failure ? failure->text : "ok");
  if (lastOutcome == outcome) return;
  lastOutcome = outcome;
  log("HelperImpl", failure ? error : 0,
      "charge enforcement " + outcome + (failure ? " — limit is NOT being applied" : ""));
}

Outcome Model::gate(bool pause) {
  bool verified = false;
  if (newerCharge) {
    const Outcome failed = writeVerified("CHTE", pause ? "01000000" : "00000000", verified);
    noteVerified(verified);
    return failed;
  }
  if (olderCharge) {
    bool second = false;
    const Outcome failed = writeVerified("CH0B", pause ? "02" : "00", verified);
    const Outcome failedToo = writeVerified("CH0C", pause ? "02" : "00", second);
    noteVerified(verified && second);
    return failed ? failed : failedToo;
  }
  if (!offered) return Failure{"AppleSMC service unavailable", unsupported, {}};
  const Outcome failed = setNative(pause ? record.limit : 100, verified);
  noteVerified(verified);
  if (!failed) return {};
  log("HelperImpl", fault, "PowerUI native charge write failed: " + failed->text);
  return Failure{"Native charge control failed: " + failed->text, 500, {}};
}

void Model::noteVerified(bool verified) {
  if (record.verified == verified) return;
  record.verified = verified;
  if (!verified) {
    log("HelperImpl", fault,
        "SMC write unverified — read-back disagreed; capability may be silently rejected by "
        "firmware");
  }
  persist();
}

// ---- discharge

Outcome Model::inflow(bool inhibit) {
  if (newerDrain) return write("CHIE", inhibit ? "08" : "00");
  if (!olderDrain) return {};
  Outcome first = write(inhibit ? "CH0I" : "CH0J", inhibit ? "01" : "00");
  if (inhibit && first) return first;
  Outcome second = write(inhibit ? "CH0J" : "CH0I", inhibit ? "01" : "00");
  if (inhibit) return {};
  return second;
}

Outcome Model::startDischarge() {
  const bool closed = lidClosed();
  if (closed && !armed) {
    return Failure{
        "Open the lid to start force-discharge — clamshell mode is unsafe with the adapter inflow "
        "disabled on this Mac.",
        unsupported,
        {}};
  }
  const auto percent = capacity();
  const auto refused = [](const std::string& why) { return Failure{why, outOfRange, {}}; };
  if (!percent) {
    return refused(
        "Can't read the battery level right now — try again in a moment before starting "
        "force-discharge.");
  }
  const std::int64_t floor = closed ? 30 : 20;
  if (*percent <= floor) {
    return refused("Battery is at " + text(*percent) + "% — below the " + text(floor) +
                   "% safety floor for force-discharge.");
  }
  if (*percent <= record.limit) {
    return refused("Battery is already at the " + text(record.limit) + "% limit.");
  }
  if (record.discharging) return {};
  release();
  if (!newerDrain && !olderDrain) {
    return Failure{"Force-discharge isn't supported on this Mac.", unsupported, {}};
  }
  if (Outcome failed = inflow(true)) {
    disarm();
    return failed;
  }
  ++generation;
  acquire();
  record.writtenAt = expect("clockNow").real;
  record.discharging = true;
  record.reason.reset();
  record.reasonAt.reset();
  record.toppingOff = false;
  lowest.reset();
  persist();
  if (!polling) {
    say("forceDischarge: arming watchdog polling loop at limit=" + text(record.limit));
    loop(record.limit);
  }
  return {};
}

void Model::watch(std::int64_t target) {
  const std::string head = "auto-stop discharge: ";
  const auto percent = capacity();
  if (!percent) {
    if (++unreadable < 3) return;
    log("HelperImpl", fault,
        head + "battery capacity unreadable for 3 consecutive ticks — failing safe");
    return stopDischarge("floorReached");
  }
  unreadable = 0;
  const bool closed = lidClosed();
  if (closed && !armed) {
    say(head + "lid closed during active discharge");
    return stopDischarge("lidClosed");
  }
  if (armed) {
    if (!closed) closedAt.reset();
    if (closed) {
      const double date = expect("clockNow").real;
      if (!closedAt) closedAt = date;
      if (date - *closedAt >= 3600) {
        say(head + "clamshell lid-closed heat-soak duration cap reached");
        return stopDischarge("clamshellTimeout");
      }
      const auto warmth = celsius();
      if (warmth && *warmth >= (planted(6) ? 46 : 45)) {
        say(head + "battery " + text(*warmth) + "°C ≥ 45°C clamshell thermal cap");
        return stopDischarge("clamshellOverheated");
      }
    }
  }
  const std::string cap = "cap=" + text(*percent);
  if (!lowest || *percent < *lowest) {
    lowest = percent;
  } else if (*percent >= *lowest + 3) {
    say(head + "capacity rebounded to " + text(*percent) + "% (≥ min " + text(*lowest) +
        "% + 3) — inhibit lost, pack is charging");
    return stopDischarge("chargeInhibitLost");
  }
  const std::int64_t floor = closed ? 30 : 20;
  if (*percent <= floor) {
    say(head + cap + " ≤ floor=" + text(floor));
    stopDischarge("floorReached");
  } else if (*percent <= target) {
    say(head + cap + " ≤ target=" + text(target));
    stopDischarge("targetReached");
  }
}

void Model::stopDischarge(const std::string& reason) {
  lowest.reset();
  unreadable = 0;
  inflow(false);
  disarm();
  release();
  record.reasonAt = expect("clockNow").real;
  record.discharging = false;
  record.reason = banners.at(reason);
  persist();
  say("force-discharge auto-stopped: reason=" + reason);
}

}  // namespace model
