#include "VirtualMac/InProcess/GatedHardware.h"

#include "VirtualMac/InProcess/FaultCodes.h"

namespace virtualmac {

namespace {

/// Where a block carries a key's value.
constexpr std::size_t smcBytesOffset = 48;
/// No payload of any key has it.
constexpr std::uint8_t changedBit = 0x10;

}  // namespace

// ---- SMC

korvel::ObjectRef GatedSMCUserClient::matchAppleSMC() {
  if (gate.enter(SeamCall::smcMatchAppleSMC)) return 0;
  return process.smc.matchAppleSMC();
}

korvel::KernReturn GatedSMCUserClient::open(korvel::ObjectRef service,
                                            korvel::ConnectionRef& connection) {
  if (const auto fault = gate.enter(SeamCall::smcOpen)) return kernCode(*fault);
  return process.smc.open(service, connection);
}

korvel::KernReturn GatedSMCUserClient::callStruct(korvel::ConnectionRef connection,
                                                  korvel::SMCBlockView input,
                                                  korvel::SMCBlockSpan output) {
  const auto fault = gate.enter(SeamCall::smcCallStruct);
  if (fault && !fault->changesAnswer) return kernCode(*fault);
  const korvel::KernReturn code = process.smc.callStruct(connection, input, output);
  if (fault) output[smcBytesOffset] ^= changedBit;
  return code;
}

korvel::KernReturn GatedSMCUserClient::close(korvel::ConnectionRef connection) {
  if (gate.enter(SeamCall::smcClose)) return korvel::kernSuccess;
  return process.smc.close(connection);
}

korvel::KernReturn GatedSMCUserClient::objectRelease(korvel::ObjectRef service) {
  if (gate.enter(SeamCall::smcObjectRelease)) return korvel::kernSuccess;
  return process.smc.objectRelease(service);
}

// ---- registry

korvel::ObjectRef GatedIORegistry::getMatchingService(std::string_view className) {
  if (gate.enter(SeamCall::registryGetMatchingService)) return 0;
  return process.registry.getMatchingService(className);
}

korvel::PropertyValue GatedIORegistry::createProperty(korvel::ObjectRef entry,
                                                      std::string_view key) {
  if (gate.enter(SeamCall::registryCreateProperty)) return {};
  return process.registry.createProperty(entry, key);
}

korvel::KernReturn GatedIORegistry::createProperties(korvel::ObjectRef entry,
                                                     korvel::PropertyValue& properties) {
  if (const auto fault = gate.enter(SeamCall::registryCreateProperties)) return kernCode(*fault);
  return process.registry.createProperties(entry, properties);
}

korvel::KernReturn GatedIORegistry::createIterator(korvel::ObjectRef entry, std::string_view plane,
                                                   std::uint32_t options,
                                                   korvel::ObjectRef& iterator) {
  if (const auto fault = gate.enter(SeamCall::registryCreateIterator)) return kernCode(*fault);
  return process.registry.createIterator(entry, plane, options, iterator);
}

korvel::ObjectRef GatedIORegistry::iteratorNext(korvel::ObjectRef iterator) {
  if (gate.enter(SeamCall::registryIteratorNext)) return 0;
  return process.registry.iteratorNext(iterator);
}

bool GatedIORegistry::conformsTo(korvel::ObjectRef object, std::string_view className) {
  if (gate.enter(SeamCall::registryConformsTo)) return false;
  return process.registry.conformsTo(object, className);
}

korvel::KernReturn GatedIORegistry::objectRelease(korvel::ObjectRef object) {
  if (gate.enter(SeamCall::registryObjectRelease)) return korvel::kernSuccess;
  return process.registry.objectRelease(object);
}

// ---- power sources

korvel::HandleRef GatedPowerSources::copyInfo() {
  if (gate.enter(SeamCall::powerSourcesCopyInfo)) return 0;
  return process.powerSources.copyInfo();
}

korvel::PowerSourceList GatedPowerSources::copyList(korvel::HandleRef info) {
  if (gate.enter(SeamCall::powerSourcesCopyList)) return {};
  return process.powerSources.copyList(info);
}

korvel::PropertyValue GatedPowerSources::getDescription(korvel::HandleRef info,
                                                        korvel::HandleRef source) {
  if (gate.enter(SeamCall::powerSourcesGetDescription)) return {};
  return process.powerSources.getDescription(info, source);
}

void GatedPowerSources::release(korvel::HandleRef object) {
  if (gate.enter(SeamCall::powerSourcesRelease)) return;
  process.powerSources.release(object);
}

}  // namespace virtualmac
