#include <algorithm>

#include "Tests/model/reference/Model.h"

// The SMC, the native limit, the readings and the assertions.

namespace model {

namespace {

constexpr int commandRead = 5, commandWrite = 6, commandInfo = 9;
constexpr std::int64_t noDevice = -536870208, notOpen = -536870195;

Failure unavailable() { return {"AppleSMC service unavailable", 503, {}}; }

Failure writeFailed(std::int64_t code, std::int64_t result) {
  return {"kSMCWriteKey failed (kIOReturn=" + text(code) + ", smcResult=" + text(result) + ")", 500,
          result};
}

/// "[0, 80]" from "0050".
std::string decimals(const std::string& hex) {
  std::string list;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    list += (i == 0 ? "" : ", ") + text(std::stol(hex.substr(i, 2), nullptr, 16));
  }
  return '[' + list + ']';
}

bool matches(const std::string& read, const std::string& written) {
  return !read.empty() && read.size() >= written.size() && read.starts_with(written) &&
         read.find_first_not_of('0', written.size()) == std::string::npos;
}

std::optional<std::int64_t> integer(const Values& values, const std::string& path) {
  const auto found = values.find(path);
  if (found == values.end() || found->second.front() != 'i') return std::nullopt;
  return std::stoll(found->second.substr(1));
}

bool isTrue(const Values& values, const std::string& path) {
  const auto found = values.find(path);
  return found != values.end() && found->second == "b1";
}

}  // namespace

void Model::openSMC() {
  if (expect("smcMatchAppleSMC").code == 0) {
    return log("SMCWriter", fault, "AppleSMC service not found at init");
  }
  const Answer& opened = expect("smcOpen");
  if (opened.code == 0) {
    connectionID = opened.number;
  } else {
    log("SMCWriter", fault, "IOServiceOpen(AppleSMC) failed: " + text(opened.code));
  }
}

bool Model::reopen() {
  if (connectionID != 0) expect("smcClose " + text(connectionID));
  connectionID = 0;
  infos.clear();
  openSMC();
  if (connectionID != 0) {
    log("SMCWriter", 0, "AppleSMC connection reopened after stale-handle recovery");
  } else {
    log("SMCWriter", fault,
        "AppleSMC reopen failed — writes will continue to fail until launchd respawns");
  }
  return connectionID != 0;
}

const Answer& Model::exchange(int command, const std::string& key, const KeyInfo& about,
                              const std::string& bytes) {
  const auto block = [&] {
    return "smcCallStruct " + text(connectionID) + ' ' + text(command) + ' ' + key + ' ' +
           about.size + ' ' + about.type + ' ' + bytes;
  };
  const Answer& first = expect(block());
  if ((first.code != noDevice && first.code != notOpen) || !reopen()) return first;
  return expect(block());
}

Outcome Model::info(const std::string& key, KeyInfo& found) {
  if (infos.contains(key)) {
    found = infos[key];
    return {};
  }
  const Answer& answer = exchange(commandInfo, key, {}, "");
  if (answer.code != 0) {
    return Failure{"kSMCGetKeyInfo failed (kIOReturn=" + text(answer.code) + ")", 500, {}};
  }
  if (answer.number == 132) {
    return Failure{"SMC key " + key + " not found on this host", 503, {}};
  }
  if (answer.number != 0) return Failure{"kSMCGetKeyInfo failed (kIOReturn=0)", 500, {}};
  found = infos[key] = {answer.values.at("size"), answer.values.at("type")};
  return {};
}

Outcome Model::read(const std::string& key, std::string& bytes) {
  if (connectionID == 0 && !reopen()) return unavailable();
  KeyInfo about;
  if (Outcome failed = info(key, about)) return failed;
  const Answer& answer = exchange(commandRead, key, about, "");
  if (answer.code != 0) return writeFailed(answer.code, answer.number);
  if (answer.number != 0) return writeFailed(0, answer.number);
  bytes = answer.text.substr(0, 2 * std::min<std::size_t>(std::stoul(about.size), 32));
  return {};
}

Outcome Model::write(const std::string& key, const std::string& bytes) {
  if (connectionID == 0 && !reopen()) return unavailable();
  KeyInfo about;
  if (Outcome failed = info(key, about)) return failed;
  if (std::stoul(about.size) < bytes.size() / 2) {
    return Failure{"Payload size mismatch (expected=" + about.size +
                       ", actual=" + text(static_cast<std::int64_t>(bytes.size() / 2)) + ")",
                   500,
                   {}};
  }
  const std::string trimmed = bytes.substr(0, bytes.find_last_not_of('0') + 1);
  const Answer& answer =
      exchange(commandWrite, key, about, trimmed + (trimmed.size() % 2 == 0 ? "" : "0"));
  if (answer.code != 0) {
    log("SMCWriter", fault, "kSMCWriteKey " + key + " IOConnect failed: " + text(answer.code));
    return writeFailed(answer.code, answer.number);
  }
  if (answer.number != 0) {
    log("SMCWriter", fault, "kSMCWriteKey " + key + " smcResult=" + text(answer.number));
    return writeFailed(0, answer.number);
  }
  log("SMCWriter", 0, "SMC write " + key + " bytes=" + decimals(bytes));
  return {};
}

Outcome Model::writeVerified(const std::string& key, const std::string& bytes, bool& verified) {
  std::string found;
  verified = !read(key, found) && matches(found, bytes);
  if (verified && !planted(1)) return {};
  if (Outcome failed = write(key, bytes)) return failed;
  verified = !read(key, found) && matches(found, bytes);
  return {};
}

bool Model::present(const std::string& key) {
  KeyInfo about;
  return (connectionID != 0 || reopen()) && !info(key, about);
}

void Model::probe() {
  const bool charge = present("CHTE"), first = present("CH0B"), second = present("CH0C");
  const bool drain = present("CHIE"), older = present("CH0I");
  newerCharge = charge;
  olderCharge = first && second && !charge;
  newerDrain = drain;
  olderDrain = older && !drain;
  log("SMCWriter", 0,
      "capability probe: tahoeC=" + text(newerCharge) + " preTahoeC=" + text(olderCharge) +
          " (metaB=" + text(first) + " metaC=" + text(second) + ") tahoeD=" + text(newerDrain) +
          " preTahoeD=" + text(olderDrain));
}

bool Model::native() {
  const auto object = [this](const std::string& call) { return expect(call).code != 0; };
  if (!object("runtimeDlopen /System/Library/PrivateFrameworks/PowerUI.framework/PowerUI 2") ||
      !object("runtimeClass PowerUISmartChargeClient") || !object("runtimeIsClass") ||
      !object("runtimeClassMethod alloc")) {
    return false;
  }
  const bool made = object("runtimeAlloc");
  if (!object("runtimeInstanceMethod initWithClientName:") || !made ||
      !object("runtimeInit Korvel")) {
    return false;
  }
  for (const char* selector : {"isMCLSupported", "isMCLCurrentlyEnabled:", "getMCLLimitWithError:",
                               "availableChargeLimitsWithError:", "setMCLLimit:error:"}) {
    if (!object(std::string("runtimeResponds ") + selector)) return false;
  }
  if (!object("runtimeCallBoolean isMCLSupported")) return false;
  const Answer& list = expect("runtimeCallObject availableChargeLimitsWithError:");
  if (list.values.contains("error") || !list.values.contains("") || list.values.at("") != "a") {
    return false;
  }
  offered.emplace();
  for (std::int64_t i = 0; const auto limit = integer(list.values, text(i)); ++i) {
    if (*limit >= 1 && *limit <= 100) offered->push_back(*limit);
  }
  std::ranges::sort(*offered);
  if (offered->empty() || offered->back() != 100) {
    offered.reset();
    return false;
  }
  std::string names;
  for (const std::int64_t limit : *offered) names += (names.empty() ? "" : ", ") + text(limit);
  log("PowerUIChargeBackend", 0, "PowerUI native charge backend ready — limits=[" + names + "]");
  return true;
}

Outcome Model::setNative(std::int64_t percent, bool& verified) {
  const std::int64_t target = std::min<std::int64_t>(std::max(percent, offered->front()), 100);
  const std::string raw = text(target == 100 ? 0 : target);
  const Answer& set = expect("runtimeCallSetUInt8 setMCLLimit:error: " + raw);
  const auto failure = [](const Answer& answer) {
    return Failure{"PowerUI call failed: " + answer.values.at("error"), 500, {}};
  };
  if (set.values.contains("error")) return failure(set);
  if (set.code == 0) return Failure{"PowerUI rejected charge limit " + text(target), 500, {}};
  const Answer& got = expect("runtimeCallInt32 getMCLLimitWithError:");
  if (got.values.contains("error")) return failure(got);
  const std::int64_t now = got.code == 0 ? 100 : got.code;
  log("PowerUIChargeBackend", 0,
      "PowerUI setLimit(" + text(percent) + ") → snapped " + text(target) + " (raw=" + raw +
          ", readback=" + text(now) + ")");
  verified = now == target;
  return {};
}

std::optional<std::int64_t> Model::capacity() {
  if (expect("powerSourcesCopyInfo").code == 0) return {};
  const Answer& list = expect("powerSourcesCopyList");
  if (list.code == 0 || list.values.contains("no array")) return {};
  for (std::int64_t i = 0; i < list.number; ++i) {
    const Values& source = expect("powerSourcesGetDescription").values;
    const auto type = source.find("Type");
    if (type == source.end() || type->second != "sInternalBattery") continue;
    if (const auto percent = integer(source, "Current Capacity")) return percent;
  }
  return {};
}

std::optional<std::int64_t> Model::celsius() {
  if (expect("registryGetMatchingService AppleSmartBattery").code == 0) return {};
  const Answer& root = expect("registryCreateProperties");
  if (root.code != 0 || !root.values.contains("") || root.values.at("") != "d") return {};
  const Values* pack = nullptr;
  if (expect("registryCreateIterator IOService").code == 0) {
    while (expect("registryIteratorNext").code != 0) {
      const bool isPack =
          pack == nullptr && expect("registryConformsTo AppleSmartBatteryPack").code != 0;
      if (!isPack && expect("registryConformsTo AppleSmartBatteryBank").code == 0) continue;
      const Answer& own = expect("registryCreateProperties");
      // A pack without figures leaves the place to the next one.
      const auto figures = own.values.lower_bound("BatteryData/");
      const bool tells = figures != own.values.end() && figures->first.starts_with("BatteryData/");
      if (isPack && own.code == 0 && tells) pack = &own.values;
    }
  }
  const std::string nested = "BatteryData/Temperature";
  std::optional<std::int64_t> found;
  if (root.values.contains("Temperature")) {
    found = integer(root.values, "Temperature");
  } else if (root.values.contains(nested)) {
    found = integer(root.values, nested);
  } else if (pack != nullptr) {
    found = integer(*pack, nested);
  }
  return found ? std::optional(*found / 100) : std::nullopt;
}

bool Model::adapter() {
  return expect("registryGetMatchingService AppleSmartBattery").code != 0 &&
         isTrue(expect("registryCreateProperty ExternalConnected").values, "");
}

bool Model::lidClosed() {
  return expect("registryGetMatchingService IOPMrootDomain").code != 0 &&
         isTrue(expect("registryCreateProperty AppleClamshellState").values, "");
}

void Model::acquire() {
  const std::string reason = "Korvel: force-discharge";
  const auto properties = [&](const std::string& type, const std::string& details) {
    return "assertionCreate {AssertLevel=i255, AssertName=s" + reason + ", AssertType=s" + type +
           details + ", TimeoutAction=sTimeoutActionRelease, TimeoutSeconds=r14400}";
  };
  assertion.reset();
  const Answer& first =
      expect(properties("PreventUserIdleSystemSleep",
                        ", Details=sKorvel is force-discharging the battery to a target SoC."));
  if (first.code != 0) {
    return log(
        "IOPMAssertion", fault,
        "IOPMAssertionCreateWithProperties (UserIdleSystemSleep) failed: " + text(first.code));
  }
  assertion = first.number;
  expect("sync");
  outstanding.push_back(first.number);
  log("IOPMAssertion", 0,
      "acquired IOPMAssertion id=" + text(first.number) +
          " type=PreventUserIdleSystemSleep reason=" + reason);
  const Answer& second = expect(properties("PreventSystemSleep", ""));
  if (second.code != 0) {
    return log("IOPMAssertion", error,
               "secondary PreventSystemSleep assertion failed: " + text(second.code) +
                   " — proceeding with idle assertion only");
  }
  expect("sync");
  outstanding.push_back(second.number);
  paired[first.number] = second.number;
  log("IOPMAssertion", 0,
      "acquired secondary IOPMAssertion id=" + text(second.number) +
          " type=PreventSystemSleep paired=" + text(first.number));
}

void Model::release() {
  if (!assertion || planted(2)) return;
  const std::int64_t first = *assertion;
  assertion.reset();
  expect("sync");
  const auto pair = paired.extract(first);
  std::erase(outstanding, first);
  if (pair) std::erase(outstanding, pair.mapped());
  const std::int64_t code = expect("assertionRelease " + text(first)).code;
  if (code != 0) {
    log("IOPMAssertion", error, "IOPMAssertionRelease(" + text(first) + ") failed: " + text(code));
  }
  if (!pair) return;
  const std::string second = text(pair.mapped());
  const std::int64_t secondCode = expect("assertionRelease " + second).code;
  if (secondCode == 0) {
    return log("IOPMAssertion", 0, "released paired secondary IOPMAssertion id=" + second);
  }
  log("IOPMAssertion", error,
      "IOPMAssertionRelease(secondary " + second + ") failed: " + text(secondCode));
}

void Model::releaseAll() {
  expect("sync");
  for (const std::int64_t id : outstanding) expect("assertionRelease " + text(id));
  expect("sync");
  outstanding.clear();
  paired.clear();
}

}  // namespace model
