#pragma once

#include "Platform/IORegistry.h"
#include "Platform/PowerSources.h"
#include "Platform/SMCUserClient.h"
#include "VirtualMac/Machine/HelperProcess.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

// The seam's hardware headers over one process of a machine: through the gate, then one call of the
// model. A fault takes the call's place as the header says that the call fails. What is only given
// back is left alone when the gate says that the process is dead.

class GatedSMCUserClient final : public korvel::SMCUserClient {
 public:
  GatedSMCUserClient(CallGate& callGate, HelperProcess& owner) : gate(callGate), process(owner) {}
  korvel::ObjectRef matchAppleSMC() override;
  korvel::KernReturn open(korvel::ObjectRef service, korvel::ConnectionRef& connection) override;
  korvel::KernReturn callStruct(korvel::ConnectionRef connection, korvel::SMCBlockView input,
                                korvel::SMCBlockSpan output) override;
  korvel::KernReturn close(korvel::ConnectionRef connection) override;
  korvel::KernReturn objectRelease(korvel::ObjectRef service) override;

 private:
  CallGate& gate;
  HelperProcess& process;
};

class GatedIORegistry final : public korvel::IORegistry {
 public:
  GatedIORegistry(CallGate& callGate, HelperProcess& owner) : gate(callGate), process(owner) {}
  korvel::ObjectRef getMatchingService(std::string_view className) override;
  korvel::PropertyValue createProperty(korvel::ObjectRef entry, std::string_view key) override;
  korvel::KernReturn createProperties(korvel::ObjectRef entry,
                                      korvel::PropertyValue& properties) override;
  korvel::KernReturn createIterator(korvel::ObjectRef entry, std::string_view plane,
                                    std::uint32_t options, korvel::ObjectRef& iterator) override;
  korvel::ObjectRef iteratorNext(korvel::ObjectRef iterator) override;
  bool conformsTo(korvel::ObjectRef object, std::string_view className) override;
  korvel::KernReturn objectRelease(korvel::ObjectRef object) override;

 private:
  CallGate& gate;
  HelperProcess& process;
};

class GatedPowerSources final : public korvel::PowerSources {
 public:
  GatedPowerSources(CallGate& callGate, HelperProcess& owner) : gate(callGate), process(owner) {}
  korvel::HandleRef copyInfo() override;
  korvel::PowerSourceList copyList(korvel::HandleRef info) override;
  korvel::PropertyValue getDescription(korvel::HandleRef info, korvel::HandleRef source) override;
  void release(korvel::HandleRef object) override;

 private:
  CallGate& gate;
  HelperProcess& process;
};

}  // namespace virtualmac
