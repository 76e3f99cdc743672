#include "TinMac/System/DispatchSource.h"

#include "TinMac/System/Books.h"
#include "TinMac/System/Signals.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

DispatchSource::DispatchSource(DispatchQueue& target)
    : DispatchObject("dispatch_source"), queue(target) {}

void DispatchSource::requireInactive(const char* call) const {
  const std::lock_guard lock(mutex);
  if (active) trap("a dispatch source was changed after its activation", call);
}

void DispatchSource::setHandler(DispatchFunction function) {
  requireInactive("dispatch_source_set_event_handler_f");
  const std::lock_guard lock(mutex);
  handler = function;
  handlerContext = context();
}

void DispatchSource::setContext(void* value) {
  requireInactive("dispatch_set_context");
  DispatchObject::setContext(value);
}

void DispatchSource::activate() {
  {
    const std::lock_guard lock(mutex);
    if (std::exchange(active, true) || cancelled) return;
  }
  start();
}

void DispatchSource::cancel() {
  {
    const std::lock_guard lock(mutex);
    if (std::exchange(cancelled, true)) return;
  }
  stop();
}

void DispatchSource::fire() {
  {
    const std::lock_guard lock(mutex);
    if (cancelled || std::exchange(pending, true)) return;
  }
  queue->async([held = Held<DispatchSource>(*this)] { held->deliver(); });
}

void DispatchSource::deliver() {
  DispatchFunction function = nullptr;
  {
    const std::lock_guard lock(mutex);
    pending = false;
    if (!cancelled) function = handler;
  }
  // Neither changes after the activation.
  if (function != nullptr) function(handlerContext);
}

void DispatchSource::abandoned() {
  bool heardUntilNow = false;
  {
    const std::lock_guard lock(mutex);
    if (!active) trap("dispatch_release of a source that was never activated", className());
    heardUntilNow = !cancelled;
  }
  if (heardUntilNow) {
    noteRule("a dispatch source was released without being cancelled", className());
    cancel();
  }
}

void DispatchSource::dispose() {
  queue->async([this] {
    finalize();
    delete this;
  });
}

DispatchSignal::DispatchSignal(DispatchQueue& target, std::int32_t number)
    : DispatchSource(target), signal(number) {}

void DispatchSignal::start() {
  const std::lock_guard lock(listenerMutex);
  if (!stopped) listener = listenToSignal(signal, [this] { fire(); });
}

void DispatchSignal::stop() {
  std::uint64_t heard = 0;
  {
    const std::lock_guard lock(listenerMutex);
    stopped = true;
    heard = listener;
  }
  if (heard != 0) stopListening(heard);
}

}  // namespace tinmac
