// Registry, user clients, power sources, assertions and settings: each function is one call of the
// machine's.

#include <cstring>
#include <mutex>
#include <set>

#include "Platform/IORegistry.h"
#include "Platform/PowerAssertions.h"
#include "Platform/PowerSettings.h"
#include "Platform/PowerSources.h"
#include "Platform/RootPowerDomain.h"
#include "Platform/SMCUserClient.h"
#include "TinMac/Frameworks/Below.h"
#include "TinMac/Glue/Machine.h"
#include "TinMac/Glue/Outgoing.h"

using korvel::PropertyValue;
using tinmac::machine;

namespace {

/// Names that some calls of the machine take and others do not. A name may be held several times.
class NameBook {
 public:
  void add(std::uint32_t name) {
    const std::lock_guard lock(mutex);
    names.insert(name);
  }
  bool remove(std::uint32_t name) {
    const std::lock_guard lock(mutex);
    const auto found = names.find(name);
    if (found == names.end()) return false;
    names.erase(found);
    return true;
  }

 private:
  std::mutex mutex;
  std::multiset<std::uint32_t> names;
};

NameBook smcServices;
NameBook smcConnections;

}  // namespace

extern "C" {

std::uint32_t tinServiceMatching(const char* className) {
  if (std::strcmp(className, "AppleSMC") != 0)
    return machine().registry.getMatchingService(className);
  const korvel::ObjectRef service = machine().smc.matchAppleSMC();
  if (service != 0) smcServices.add(service);
  return service;
}

std::int32_t tinObjectRelease(std::uint32_t object) {
  if (smcServices.remove(object)) return machine().smc.objectRelease(object);
  return machine().registry.objectRelease(object);
}

std::uint32_t tinObjectConformsTo(std::uint32_t object, const char* className) {
  return machine().registry.conformsTo(object, className) ? 1 : 0;
}

void tinEntryProperty(std::uint32_t entry, const char* key, const TinValueSink* sink) {
  tinmac::tell(machine().registry.createProperty(entry, key), *sink);
}

std::int32_t tinEntryProperties(std::uint32_t entry, const TinValueSink* sink) {
  PropertyValue properties;
  const korvel::KernReturn result = machine().registry.createProperties(entry, properties);
  tinmac::tell(properties, *sink);
  return result;
}

std::int32_t tinEntryIterator(std::uint32_t entry, const char* plane, std::uint32_t options,
                              std::uint32_t* iterator) {
  return machine().registry.createIterator(entry, plane, options, *iterator);
}

std::uint32_t tinIteratorNext(std::uint32_t iterator) {
  return machine().registry.iteratorNext(iterator);
}

std::int32_t tinServiceOpen(std::uint32_t service, std::uint32_t* connection) {
  const korvel::KernReturn result = machine().smc.open(service, *connection);
  if (result == korvel::kernSuccess) smcConnections.add(*connection);
  return result;
}

std::int32_t tinServiceClose(std::uint32_t connection) {
  if (smcConnections.remove(connection)) return machine().smc.close(connection);
  return machine().rootDomain.serviceClose(connection);
}

std::int32_t tinCallStruct(std::uint32_t connection, const std::uint8_t* input,
                           std::uint8_t* output) {
  return machine().smc.callStruct(connection, korvel::SMCBlockView(input, korvel::smcBlockSize),
                                  korvel::SMCBlockSpan(output, korvel::smcBlockSize));
}

std::uint64_t tinPowerSourcesInfo() { return machine().powerSources.copyInfo(); }

std::uint64_t tinPowerSourcesList(std::uint64_t info, std::uint32_t* isArray,
                                  void (*element)(void* context, std::uint64_t source),
                                  void* context) {
  const korvel::PowerSourceList list = machine().powerSources.copyList(info);
  *isArray = list.isArray ? 1 : 0;
  for (const korvel::HandleRef source : list.elements) element(context, source);
  return list.handle;
}

void tinPowerSourceDescription(std::uint64_t info, std::uint64_t source, const TinValueSink* sink) {
  tinmac::tell(machine().powerSources.getDescription(info, source), *sink);
}

void tinPowerSourcesRelease(std::uint64_t object) { machine().powerSources.release(object); }

std::int32_t tinAssertionCreate(std::uint32_t* assertion) {
  return machine().assertions.createWithProperties(tinmac::takeOutgoingValue(), *assertion);
}

std::int32_t tinAssertionRelease(std::uint32_t assertion) {
  return machine().assertions.release(assertion);
}

std::int32_t tinSetPowerSetting(const char* key, std::uint32_t value) {
  return machine().powerSettings.setSystemPowerSetting(key, value != 0);
}

void tinPowerSettings(const TinValueSink* sink) {
  tinmac::tell(machine().powerSettings.copySystemPowerSettings(), *sink);
}

std::uint32_t tinPowerRegister(void* context, TinInterest heard, std::uint64_t* port,
                               std::uint32_t* notifier) {
  return machine().rootDomain.registerForSystemPower(context, *port, heard, *notifier);
}

std::int32_t tinPowerDeregister(std::uint32_t* notifier) {
  return machine().rootDomain.deregisterForSystemPower(*notifier);
}

std::int32_t tinPowerAllow(std::uint32_t connection, std::int64_t notification) {
  return machine().rootDomain.allowPowerChange(connection, notification);
}

std::uint64_t tinPortSource(std::uint64_t port) {
  return machine().rootDomain.notificationPortGetRunLoopSource(port);
}

void tinPortDestroy(std::uint64_t port) { machine().rootDomain.notificationPortDestroy(port); }

std::uint64_t tinMainRunLoop() { return machine().rootDomain.mainRunLoop(); }

void tinRunLoopAddSource(std::uint64_t runLoop, std::uint64_t source) {
  machine().rootDomain.runLoopAddSource(runLoop, source);
}

void tinRunLoopRemoveSource(std::uint64_t runLoop, std::uint64_t source) {
  machine().rootDomain.runLoopRemoveSource(runLoop, source);
}

}  // extern "C"
