#include "VirtualMac/Machine/Faults.h"

#include <algorithm>
#include <functional>

#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

namespace {

using Args = FaultArguments;
using korvel::PropertyValue;

constexpr std::string_view batteryClass = "AppleSmartBattery";
constexpr std::string_view packClass = "AppleSmartBatteryPack";
constexpr std::string_view rootDomainClass = "IOPMrootDomain";
constexpr korvel::KernReturn notPermitted = static_cast<korvel::KernReturn>(0xE00002E2U);
constexpr double longestSeconds = 1e6;

/// The targets that several faults share; of the faults with one target, one is on at a time.
constexpr std::string_view openingTarget = "the opening of AppleSMC";
constexpr std::string_view capacityTarget = "the current capacity";
constexpr std::string_view temperatureTarget = "the temperature";
constexpr std::string_view adapterTarget = "the adapter's state";
constexpr std::string_view settingsTarget = "the power settings";
constexpr std::string_view signatureTarget = "the helper's signature";

void addName(std::string& list, std::string_view name) {
  list += (list.empty() ? "" : ", ") + std::string(name);
}

/// Puts a fault on one key, or complains that there is none of that name.
void withKey(Machine& mac, Args& args, const std::function<void(SMC::Key&)>& act) {
  if (SMC::Key* key = mac.smc.key(args.text(0))) {
    act(*key);
  } else {
    args.complaint = "this machine has no key " + args.text(0);
  }
}

void overrideOrRestore(Machine& mac, std::string_view className, std::string_view key,
                       PropertyValue value, bool on) {
  if (on) {
    mac.registry.overrideProperty(className, key, std::move(value));
  } else {
    mac.registry.restoreProperty(className, key);
  }
}

/// The temperature sits on the service or, in the pack's layout, inside the pack's data.
void overrideTemperature(Machine& mac, const PropertyValue& value, bool on) {
  overrideOrRestore(mac, batteryClass, "Temperature", value, on);
  if (mac.battery.kind().layout == BatteryLayout::Pack) {
    overrideOrRestore(mac, packClass, "BatteryData", PropertyValue::Dictionary{}, on);
  }
}

void setCapacity(Machine& mac, PropertyValue value, bool on) {
  if (on) {
    mac.powerSources.overrideCurrentCapacity(std::move(value));
  } else {
    mac.powerSources.restoreCurrentCapacity();
  }
}

template <class Value>
void setOptional(std::optional<Value>& target, bool on, Value value) {
  target = on ? std::optional<Value>(std::move(value)) : std::nullopt;
}

void setResult(std::optional<std::uint8_t>& target, Args& args, bool on) {
  const std::int64_t code = on ? args.integer(1, 1, 255) : 0;
  if (!args.complaint) setOptional(target, on, static_cast<std::uint8_t>(code));
}

void setCode(std::optional<korvel::KernReturn>& target, Args& args, bool on,
             korvel::KernReturn usual) {
  const korvel::KernReturn code = args.code(0, usual);
  if (!args.complaint) setOptional(target, on, code);
}

void keyMissing(Machine& mac, Args& args, bool on) {
  if (on) {
    if (!mac.smc.removeKey(args.text(0))) args.complaint = "there is no key " + args.text(0);
    return;
  }
  for (const SMCKeyProfile& key : mac.profile().smcKeys) {
    if (key.name == args.text(0)) return mac.smc.addKey(key);
  }
  args.complaint = "this kind of machine never had a key " + args.text(0);
}

void keyJunk(Machine& mac, Args& args, bool on) {
  std::vector<std::uint8_t> junk;
  for (std::size_t i = 1; on && i < args.count(); ++i) {
    junk.push_back(static_cast<std::uint8_t>(args.integer(i, 0, 255)));
  }
  if (!args.complaint) withKey(mac, args, [&](SMC::Key& key) { key.trailingJunk = junk; });
}

void keySize(Machine& mac, Args& args, bool on) {
  const auto size = static_cast<std::uint32_t>(on ? args.integer(1, 0, 255) : 0);
  if (args.complaint) return;
  withKey(mac, args, [&](SMC::Key& key) { setOptional(key.statedSize, on, size); });
}

void reopenFails(Machine& mac, Args& args, bool on) {
  setCode(mac.smc.openRefusal, args, on, notPermitted);
  if (on && !args.complaint) mac.smc.invalidateConnections();
}

void temperatureOverride(Machine& mac, Args& args, bool on) {
  const double celsius = on ? args.real(0, lowestCelsius, highestCelsius) : 0;
  if (args.complaint) return;
  mac.battery.overrideTemperatureCelsius(on ? std::optional(celsius) : std::nullopt);
}

void methodMissing(Machine& mac, Args& args, bool on) {
  if (std::ranges::find(smartChargeMethods, args.text(0)) == smartChargeMethods.end()) {
    std::string all;
    for (const std::string_view name : smartChargeMethods) addName(all, name);
    args.complaint = "no method is called \"" + args.text(0) + "\"; there are: " + all;
  } else if (on) {
    mac.powerUI.missingMethods.insert(args.text(0));
  } else {
    mac.powerUI.missingMethods.erase(args.text(0));
  }
}

void offeredLimits(Machine& mac, Args& args, bool on) {
  PropertyValue::Array limits;
  for (std::size_t i = 0; on && i < args.count(); ++i) {
    limits.emplace_back(args.integer(i, INT32_MIN, INT32_MAX));
  }
  if (args.complaint) return;
  mac.powerUI.offeredLimits = on ? PropertyValue(limits) : mac.profile().powerUI.offeredLimits;
}

/// Complains, naming those that exist, unless there is a file call of this name that can fail.
void expectFileCall(Args& args) {
  std::string all;
  for (const SeamCallDescription& call : seamCalls) {
    if (call.interface != "FileSystem" || call.kind == FailureKind::Release) continue;
    if (call.method == args.text(0)) return;
    addName(all, call.method);
  }
  args.complaint =
      "no file call that can fail is called \"" + args.text(0) + "\"; there are: " + all;
}

void diskCallFails(Machine& mac, Args& args, bool on) {
  expectFileCall(args);
  if (args.complaint) return;
  const auto error = static_cast<int>(on ? args.integer(1, 1, 255) : 0);
  if (args.complaint) return;
  if (on) {
    mac.disk.failCall(args.text(0), error);
  } else {
    mac.disk.clearCall(args.text(0));
  }
}

void callLatency(Machine& mac, Args& args, bool on) {
  const double seconds = on ? args.real(1, 0, longestSeconds) : 0;
  if (args.complaint) return;
  for (std::size_t i = 0; i < seamCallCount; ++i) {
    if (seamCalls[i].id == args.text(0)) {
      return mac.setLatencySeconds(static_cast<SeamCall>(i), seconds);
    }
  }
  args.complaint = "no call is named " + args.text(0);
}

void shortWrites(Machine& mac, Args& args, bool on) {
  const auto bytes = static_cast<std::size_t>(on ? args.integer(0, 0, INT32_MAX) : 0);
  if (!args.complaint) setOptional(mac.disk.shortWriteBytes, on, bytes);
}

void newConnectionsBreak(Machine& mac, Args& args, bool on) {
  if (!on) return mac.connectionsBreak.reset();
  std::string all;
  for (const auto& [name, moment] : connectionBreaks) {
    if (name == args.text(0)) {
      mac.connectionsBreak = moment;
      return;
    }
    addName(all, name);
  }
  args.complaint = "no moment is called \"" + args.text(0) + "\"; there are: " + all;
}

void signHelperAs(Machine& mac, std::string_view identity, bool on) {
  mac.signatures.setPath(helperProgramPath, on ? identity : "helper");
}

// clang-format off: one fault a line.
constexpr Fault catalogue[] = {
    {"adapter-hidden", "", "The adapter reads as disconnected while its inflow is inhibited.",
     [](Machine& mac, Args&, bool on) { mac.registry.setInhibitHidesAdapter(on); }},
    {"adapter-mistyped", "", "The adapter's state is a number.",
     [](Machine& mac, Args&, bool on) { overrideOrRestore(mac, batteryClass, "ExternalConnected", 1, on); }, adapterTarget},
    {"adapter-unknown", "", "The adapter's state is not stated.",
     [](Machine& mac, Args&, bool on) { overrideOrRestore(mac, batteryClass, "ExternalConnected", {}, on); }, adapterTarget},
    {"assertion-refused", "[CODE]", "Power assertions cannot be made.",
     [](Machine& mac, Args& args, bool on) { setCode(mac.power.assertionRefusal, args, on, korvel::ioReturnError); }},
    {"assertion-release-refused", "[CODE]", "Power assertions cannot be released.",
     [](Machine& mac, Args& args, bool on) { setCode(mac.power.assertionReleaseRefusal, args, on, korvel::ioReturnError); }},
    {"assertion-secondary-refused", "[CODE]", "PreventSystemSleep assertions cannot be made.",
     [](Machine& mac, Args& args, bool on) { setCode(mac.power.secondaryAssertionRefusal, args, on, korvel::ioReturnError); }},
    {"battery-mistyped", "", "The battery's current capacity is text.",
     [](Machine& mac, Args&, bool on) { setCapacity(mac, "full", on); }, capacityTarget},
    {"battery-service-missing", "", "The battery's registry service is not there.",
     [](Machine& mac, Args&, bool on) { mac.registry.hideService(batteryClass, on); }},
    {"battery-unreadable", "", "The battery's power source has no current capacity.",
     [](Machine& mac, Args&, bool on) { setCapacity(mac, {}, on); }, capacityTarget},
    {"call-latency", "CALL SECONDS", "Every platform call of a name takes this long.", callLatency},
    {"connection-breaks", "MOMENT", "New connections end as they are accepted: at handler, in resume, or after.", newConnectionsBreak},
    {"disk-call-fails", "CALL ERRNO", "A file call (mkdir, fsync, readFile, ...) fails with an errno.", diskCallFails},
    {"disk-full", "", "Nothing can be written to the disk.",
     [](Machine& mac, Args&, bool on) { mac.disk.full = on; }},
    {"disk-readonly", "", "The disk is read-only.",
     [](Machine& mac, Args&, bool on) { mac.disk.readOnly = on; }},
    {"disk-rename-fails", "", "Files cannot be replaced.",
     [](Machine& mac, Args&, bool on) { mac.disk.replaceFails = on; }},
    {"disk-short-writes", "BYTES", "No write takes more bytes at once.", shortWrites},
    {"helper-unsigned", "", "The helper's program is not signed.",
     [](Machine& mac, Args&, bool on) { signHelperAs(mac, "unsigned", on); }, signatureTarget},
    {"helper-without-team", "", "The helper's program is signed without a team.",
     [](Machine& mac, Args&, bool on) { signHelperAs(mac, "ad-hoc", on); }, signatureTarget},
    {"lid-unknown", "", "The lid's state is not stated.",
     [](Machine& mac, Args&, bool on) { overrideOrRestore(mac, rootDomainClass, "AppleClamshellState", {}, on); }},
    {"power-registration-fails", "", "Nobody can register for sleep and wake messages.",
     [](Machine& mac, Args&, bool on) { mac.power.registrationFails = on; }},
    {"power-sources-empty", "", "The list of power sources is empty.",
     [](Machine& mac, Args&, bool on) { mac.powerSources.listEmpty = on; }},
    {"power-sources-missing", "", "There is no snapshot of the power sources.",
     [](Machine& mac, Args&, bool on) { mac.powerSources.snapshotFails = on; }},
    {"power-sources-mistyped", "", "The list of power sources is not an array.",
     [](Machine& mac, Args&, bool on) { mac.powerSources.listIsNotArray = on; }},
    {"power-sources-no-list", "", "A snapshot gives no list.",
     [](Machine& mac, Args&, bool on) { mac.powerSources.listFails = on; }},
    {"powerui-class-missing", "", "PowerUI lacks its client class.",
     [](Machine& mac, Args&, bool on) { mac.powerUI.classPresent = !on && mac.profile().powerUI.present; }},
    {"powerui-error", "TEXT...", "Setting the native limit fails with an error.",
     [](Machine& mac, Args& args, bool on) { setOptional(mac.powerUI.setError, on, args.rest(0)); }},
    {"powerui-init-fails", "", "PowerUI's client cannot be made.",
     [](Machine& mac, Args&, bool on) { mac.powerUI.initGivesNothing = on; }},
    {"powerui-keeps-limit", "", "Setting the native limit succeeds and changes nothing.",
     [](Machine& mac, Args&, bool on) { mac.powerUI.keepsOldLimit = on; }},
    {"powerui-method-missing", "NAME", "PowerUI lacks one method.", methodMissing},
    {"powerui-missing", "", "The PowerUI framework does not load.",
     [](Machine& mac, Args&, bool on) { mac.powerUI.frameworkPresent = !on && mac.profile().powerUI.present; }},
    {"powerui-offers", "[LIMIT...]", "PowerUI offers these limits.", offeredLimits},
    {"powerui-offers-error", "TEXT...", "Asking for the offered limits fails with an error.",
     [](Machine& mac, Args& args, bool on) { setOptional(mac.powerUI.offeredError, on, args.rest(0)); }},
    {"powerui-read-error", "TEXT...", "Reading the native limit fails with an error.",
     [](Machine& mac, Args& args, bool on) { setOptional(mac.powerUI.getError, on, args.rest(0)); }},
    {"powerui-refuses", "", "Setting the native limit is refused without an error.",
     [](Machine& mac, Args&, bool on) { mac.powerUI.refuses = on; }},
    {"powerui-unsupported", "", "PowerUI says that this machine has no charge limit.",
     [](Machine& mac, Args&, bool on) { mac.powerUI.supported = !on && mac.profile().powerUI.supported; }},
    {"registry-iteration-fails", "", "Registry children cannot be walked.",
     [](Machine& mac, Args&, bool on) { mac.registry.iterationFails = on; }},
    {"registry-unreadable", "", "Registry entries give no properties.",
     [](Machine& mac, Args&, bool on) { mac.registry.propertiesUnreadable = on; }},
    {"root-domain-missing", "", "The root power domain's registry service is not there.",
     [](Machine& mac, Args&, bool on) { mac.registry.hideService(rootDomainClass, on); }},
    {"settings-mistyped", "", "Power settings read as text.",
     [](Machine& mac, Args&, bool on) { setOptional(mac.power.settingsOverride, on, PropertyValue("settings")); }, settingsTarget},
    {"settings-refused", "[CODE]", "Writing power settings is refused.",
     [](Machine& mac, Args& args, bool on) { setCode(mac.power.settingRefusal, args, on, korvel::ioReturnNotPrivileged); }},
    {"settings-unreadable", "", "Power settings read as never stored.",
     [](Machine& mac, Args&, bool on) { setOptional(mac.power.settingsOverride, on, PropertyValue()); }, settingsTarget},
    {"smc-junk", "KEY BYTE...", "A key reads back with these bytes after its value.", keyJunk},
    {"smc-key-missing", "KEY", "A key is gone; it comes back with its first value.", keyMissing},
    {"smc-latency", "SECONDS", "Every SMC command takes this long.",
     [](Machine& mac, Args& args, bool on) {
       const double seconds = on ? args.real(0, 0, longestSeconds) : 0;
       if (!args.complaint) mac.smc.callLatencySeconds = seconds;
     }},
    {"smc-missing", "", "The AppleSMC service is not there.",
     [](Machine& mac, Args&, bool on) { mac.smc.servicePresent = !on && mac.profile().smcPresent; }},
    {"smc-open-refused", "[CODE]", "Opening AppleSMC is refused.",
     [](Machine& mac, Args& args, bool on) { setCode(mac.smc.openRefusal, args, on, notPermitted); }, openingTarget},
    {"smc-reopen-fails", "[CODE]", "Connections are stale and cannot be opened again.", reopenFails, openingTarget},
    {"smc-result", "KEY CODE", "Every command on a key answers a result code.",
     [](Machine& mac, Args& args, bool on) { withKey(mac, args, [&](SMC::Key& key) { setResult(key.result, args, on); }); }},
    {"smc-silent-refusal", "KEY", "Writes of a key succeed and change nothing.",
     [](Machine& mac, Args& args, bool on) { withKey(mac, args, [on](SMC::Key& key) { key.silentlyRefuses = on; }); }},
    {"smc-size", "KEY SIZE", "Key info states another size than the key has.", keySize},
    {"smc-stale", "[CODE]", "Every connection open now is stale, once.",
     [](Machine& mac, Args& args, bool on) {
       const korvel::KernReturn code = args.code(0, korvel::ioReturnNotOpen);
       if (on && !args.complaint) mac.smc.invalidateConnections(code);
     }, {}, true},
    {"smc-write-result", "KEY CODE", "Writes of a key answer a result code.",
     [](Machine& mac, Args& args, bool on) { withKey(mac, args, [&](SMC::Key& key) { setResult(key.writeResult, args, on); }); }},
    {"temperature-mistyped", "", "The battery's temperature is text.",
     [](Machine& mac, Args&, bool on) { overrideTemperature(mac, "warm", on); }, temperatureTarget},
    {"temperature-override", "CELSIUS", "The battery has this temperature.", temperatureOverride},
    {"temperature-unreadable", "", "The battery states no temperature.",
     [](Machine& mac, Args&, bool on) { overrideTemperature(mac, {}, on); }, temperatureTarget},
};
// clang-format on
static_assert(std::ranges::is_sorted(catalogue, {}, &Fault::name));

}  // namespace

std::span<const Fault> faultCatalogue() { return catalogue; }

}  // namespace virtualmac
