#include "VirtualMac/Machine/HelperProcess.h"

#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

korvel::KernReturn AssertionsClient::createWithProperties(const korvel::PropertyValue& properties,
                                                          std::uint32_t& assertion) {
  if (ended) return korvel::ioReturnError;
  return power.createAssertion(pid, properties, assertion);
}

korvel::KernReturn AssertionsClient::release(std::uint32_t assertion) {
  return power.releaseAssertion(assertion);
}

void AssertionsClient::dropAll() {
  ended = true;
  power.dropProcess(pid);
}

korvel::KernReturn SettingsClient::setSystemPowerSetting(std::string_view key, bool value) {
  return power.setSystemPowerSetting(key, value, true);
}

korvel::PropertyValue SettingsClient::copySystemPowerSettings() {
  return power.copySystemPowerSettings();
}

korvel::Date ClockClient::now() { return machine.wallClock(); }

HelperProcess::HelperProcess(Machine& owner, std::int32_t processID)
    : machine(owner),
      id(processID),
      registry(owner.registry),
      smc(owner.smc, registry),
      powerSources(owner.powerSources),
      assertions(owner.power, processID),
      powerSettings(owner.power),
      rootDomain(owner.power, processID),
      smartCharge(owner.powerUI, processID),
      files(owner.disk),
      clock(owner),
      codeSigning(owner.signatures) {}

std::optional<std::string> HelperProcess::bundleExecutablePath() const {
  return machine.bundleExecutablePath;
}

korvel::PropertyValue HelperProcess::bundleInfo(std::string_view key) const {
  const auto found = machine.bundleInformation.find(key);
  return found == machine.bundleInformation.end() ? korvel::PropertyValue() : found->second;
}

std::size_t HelperProcess::liveObjects() const {
  return registry.liveObjects() + smc.openConnections() + powerSources.liveObjects() +
         rootDomain.liveObjects() + smartCharge.liveObjects() + files.openDescriptors() +
         codeSigning.liveObjects();
}

void HelperProcess::end() {
  alive = false;
  registry.dropAll();
  smc.dropAll();
  powerSources.dropAll();
  rootDomain.dropAll();
  smartCharge.dropAll();
  files.dropAll();
  codeSigning.dropAll();
  assertions.dropAll();
}

}  // namespace virtualmac
