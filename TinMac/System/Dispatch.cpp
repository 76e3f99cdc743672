#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "TinMac/System/DispatchGroup.h"
#include "TinMac/System/DispatchQueue.h"
#include "TinMac/System/DispatchSource.h"
#include "TinMac/System/ExportTables.h"
#include "TinMac/System/Numbers.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

struct QueueAttributes {
  std::string qualityOfService;
};

const char* qualityOfServiceName(std::uint32_t qualityOfService) {
  switch (qualityOfService) {
    case 0x00:
      return "unspecified";
    case 0x09:
      return "background";
    case 0x11:
      return "utility";
    case 0x15:
      return "default";
    case 0x19:
      return "user initiated";
    case 0x21:
      return "user interactive";
    default:
      trap("a quality of service that a Mac does not have", std::to_string(qualityOfService));
  }
}

/// The attributes of queues, one object for each pair of class and relative priority; none goes.
class AttributeTable {
 public:
  const QueueAttributes* make(std::uint32_t qualityOfService, std::int32_t priority) {
    constexpr std::int32_t lowestPriority = -15;
    if (priority > 0 || priority < lowestPriority) {
      trap("a relative priority outside -15 to 0", std::to_string(priority));
    }
    std::string name = qualityOfServiceName(qualityOfService);
    if (priority != 0) name += " " + std::to_string(priority);
    const std::lock_guard lock(mutex);
    return &table.try_emplace({qualityOfService, priority}, std::move(name)).first->second;
  }

  const QueueAttributes& checked(const void* attributes) {
    const std::lock_guard lock(mutex);
    for (const auto& [key, known] : table) {
      if (&known == attributes) return known;
    }
    trap("attributes of a queue that dispatch_queue_attr_make_with_qos_class did not make", "");
  }

 private:
  std::mutex mutex;
  std::map<std::pair<std::uint32_t, std::int32_t>, QueueAttributes> table;
};

AttributeTable& attributeTable() {
  static auto* const only = new AttributeTable;
  return *only;
}

/// Their addresses are the kinds of source.
char timerType = 0;
char signalType = 0;

const void* makeAttributes(const void* base, std::uint32_t qualityOfService,
                           std::int32_t priority) {
  // Null is a serial queue's.
  if (base != nullptr) attributeTable().checked(base);
  return attributeTable().make(qualityOfService, priority);
}

void* createQueue(const char* label, const void* attributes) {
  const std::string qualityOfService = attributes == nullptr
                                           ? qualityOfServiceName(0)
                                           : attributeTable().checked(attributes).qualityOfService;
  return programAddress(*makeSerialQueue(label == nullptr ? "" : label, qualityOfService));
}

void setSpecific(void* queue, const void* key, void* value, DispatchFunction destructor) {
  living<DispatchQueue>(queue, "dispatch_queue_set_specific").setSpecific(key, value, destructor);
}

void* getSpecific(const void* key) {
  const DispatchQueue* const queue = DispatchQueue::current();
  return queue == nullptr ? nullptr : queue->specific(key);
}

void asyncFunction(void* queue, void* context, DispatchFunction work) {
  living<DispatchQueue>(queue, "dispatch_async_f").async([=] { work(context); });
}

void syncFunction(void* queue, void* context, DispatchFunction work) {
  living<DispatchQueue>(queue, "dispatch_sync_f").sync([=] { work(context); });
}

void retainObject(void* object) { livingObject(object, "dispatch_retain").retain(); }
void releaseObject(void* object) { livingObject(object, "dispatch_release").release(); }
void activateObject(void* object) { livingObject(object, "dispatch_activate").activate(); }

void setContext(void* object, void* context) {
  livingObject(object, "dispatch_set_context").setContext(context);
}

void setFinalizer(void* object, DispatchFunction finalizer) {
  livingObject(object, "dispatch_set_finalizer_f").setFinalizer(finalizer);
}

void* createSource(const void* type, std::uintptr_t handle, std::uintptr_t mask, void* queue) {
  constexpr std::uintptr_t strictTimer = 1;
  auto& target = living<DispatchQueue>(queue, "dispatch_source_create");
  if (type == &timerType && handle == 0 && mask <= strictTimer) {
    return programAddress(*new DispatchTimer(target));
  }
  if (type == &signalType && mask == 0) {
    if (handle == 0 || handle >= macSignals) return nullptr;
    return programAddress(*new DispatchSignal(target, static_cast<std::int32_t>(handle)));
  }
  trap("dispatch_source_create", "a type, handle " + std::to_string(handle) + " and mask " +
                                     std::to_string(mask) + " that are not known");
}

void setEventHandler(void* source, DispatchFunction handler) {
  living<DispatchSource>(source, "dispatch_source_set_event_handler_f").setHandler(handler);
}

void setTimer(void* source, DispatchTime first, std::uint64_t interval, std::uint64_t /*leeway*/) {
  living<DispatchTimer>(source, "dispatch_source_set_timer").set(first, interval);
}

void cancelSource(void* source) {
  living<DispatchSource>(source, "dispatch_source_cancel").cancel();
}

void* createGroup() { return programAddress(*new DispatchGroup); }
void enterGroup(void* group) { living<DispatchGroup>(group, "dispatch_group_enter").enter(); }
void leaveGroup(void* group) { living<DispatchGroup>(group, "dispatch_group_leave").leave(); }

std::int64_t waitForGroup(void* group, DispatchTime until) {
  constexpr std::int64_t timedOut = 49;
  return living<DispatchGroup>(group, "dispatch_group_wait").wait(until) ? 0 : timedOut;
}

}  // namespace

std::span<const Export> dispatchExports() {
  static const Export table[] = {
      {"__dispatch_main_q", programAddress(mainQueue())},
      {"__dispatch_source_type_signal", &signalType},
      {"__dispatch_source_type_timer", &timerType},
      {"_dispatch_activate", code(activateObject)},
      {"_dispatch_async_f", code(asyncFunction)},
      {"_dispatch_get_specific", code(getSpecific)},
      {"_dispatch_group_create", code(createGroup)},
      {"_dispatch_group_enter", code(enterGroup)},
      {"_dispatch_group_leave", code(leaveGroup)},
      {"_dispatch_group_wait", code(waitForGroup)},
      {"_dispatch_queue_attr_make_with_qos_class", code(makeAttributes)},
      {"_dispatch_queue_create", code(createQueue)},
      {"_dispatch_queue_set_specific", code(setSpecific)},
      {"_dispatch_release", code(releaseObject)},
      {"_dispatch_retain", code(retainObject)},
      {"_dispatch_set_context", code(setContext)},
      {"_dispatch_set_finalizer_f", code(setFinalizer)},
      {"_dispatch_source_cancel", code(cancelSource)},
      {"_dispatch_source_create", code(createSource)},
      {"_dispatch_source_set_event_handler_f", code(setEventHandler)},
      {"_dispatch_source_set_timer", code(setTimer)},
      {"_dispatch_sync_f", code(syncFunction)},
      {"_dispatch_time", code(timeAfter)},
  };
  return table;
}

}  // namespace tinmac
