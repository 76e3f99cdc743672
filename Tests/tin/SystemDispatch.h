#pragma once

#include <cstdint>

#include "SystemHost.h"

namespace tinmac::test {

// libdispatch as a program calls it: through the addresses that it binds.

using Function = void(void*);
inline constexpr std::uint64_t forever = ~std::uint64_t{0};

inline void* mainQueue() { return boundAddress("__dispatch_main_q"); }
inline void* makeQueue(const char* label = "test") {
  return bound<void*(const char*, const void*)>("_dispatch_queue_create")(label, nullptr);
}
inline void async(void* queue, void* context, Function* work) {
  bound<void(void*, void*, Function*)>("_dispatch_async_f")(queue, context, work);
}
inline void sync(void* queue, void* context, Function* work) {
  bound<void(void*, void*, Function*)>("_dispatch_sync_f")(queue, context, work);
}
inline void retain(void* object) { bound<Function>("_dispatch_retain")(object); }
inline void release(void* object) { bound<Function>("_dispatch_release")(object); }
inline void activate(void* object) { bound<Function>("_dispatch_activate")(object); }
inline void cancel(void* source) { bound<Function>("_dispatch_source_cancel")(source); }
inline void setContext(void* object, void* context) {
  bound<void(void*, void*)>("_dispatch_set_context")(object, context);
}
inline void setFinalizer(void* object, Function* finalizer) {
  bound<void(void*, Function*)>("_dispatch_set_finalizer_f")(object, finalizer);
}
inline void setHandler(void* source, Function* handler) {
  bound<void(void*, Function*)>("_dispatch_source_set_event_handler_f")(source, handler);
}
inline void setTimer(void* source, std::uint64_t first, std::uint64_t interval) {
  bound<void(void*, std::uint64_t, std::uint64_t, std::uint64_t)>("_dispatch_source_set_timer")(
      source, first, interval, 0);
}
inline void* makeSource(const char* type, std::uintptr_t handle, void* queue) {
  return bound<void*(void*, std::uintptr_t, std::uintptr_t, void*)>("_dispatch_source_create")(
      boundAddress(type), handle, 0, queue);
}
inline void* makeTimer(void* queue) { return makeSource("__dispatch_source_type_timer", 0, queue); }
inline void* makeSignal(int number, void* queue) {
  return makeSource("__dispatch_source_type_signal", static_cast<std::uintptr_t>(number), queue);
}
inline std::uint64_t after(std::uint64_t when, std::int64_t nanoseconds) {
  return bound<std::uint64_t(std::uint64_t, std::int64_t)>("_dispatch_time")(when, nanoseconds);
}
inline void doNothing(void* /*context*/) {}
/// Waits until all work queued so far was run.
inline void settle(void* queue) { sync(queue, nullptr, doNothing); }

}  // namespace tinmac::test
