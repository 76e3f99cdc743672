#include "VirtualMac/Machine/HelperProcess.h"

#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

HelperProcess::HelperProcess(Machine& owner, std::int32_t processID)
    : machine(owner),
      id(processID),
      registry(owner.registry),
      smc(owner.smc, registry),
      powerSources(owner.powerSources),
      rootDomain(owner.power, processID),
      smartCharge(owner.powerUI, processID),
      files(owner.disk),
      codeSigning(owner.signatures) {}

korvel::KernReturn HelperProcess::createAssertion(const korvel::PropertyValue& properties,
                                                  std::uint32_t& assertion) {
  if (!alive) return korvel::ioReturnError;
  return machine.power.createAssertion(id, properties, assertion);
}

korvel::KernReturn HelperProcess::releaseAssertion(std::uint32_t assertion) {
  return machine.power.releaseAssertion(assertion);
}

korvel::KernReturn HelperProcess::setSystemPowerSetting(std::string_view key, bool value) {
  // The helper runs as root.
  return machine.power.setSystemPowerSetting(key, value, true);
}

korvel::PropertyValue HelperProcess::copySystemPowerSettings() {
  return machine.power.copySystemPowerSettings();
}

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
  machine.power.dropProcess(id);
}

}  // namespace virtualmac
