#pragma once

#include <cstdint>
#include <map>
#include <mutex>

#include "Platform/RootPowerDomain.h"

namespace virtualmac {

/// The callbacks of a process's registrations with the root power domain. They stay in the process;
/// Base makes the calls. A message on its way to a registration that is given back meanwhile is
/// dropped.
template <class Base>
class PowerCallbacks final : public Base {
 public:
  using Base::Base;

  korvel::ConnectionRef registerForSystemPower(void* refcon, korvel::HandleRef& port,
                                               korvel::InterestCallback callback,
                                               korvel::ObjectRef& notifier) override {
    const korvel::ConnectionRef root =
        Base::registerForSystemPower(refcon, port, callback, notifier);
    // No message can have come yet: the port's source is on no run loop.
    const std::lock_guard lock(mutex);
    if (root != 0) callbacks.insert_or_assign(notifier, Callback{callback, refcon});
    return root;
  }

  korvel::KernReturn deregisterForSystemPower(korvel::ObjectRef& notifier) override {
    {
      const std::lock_guard lock(mutex);
      callbacks.erase(notifier);
    }
    return Base::deregisterForSystemPower(notifier);
  }

  /// On the main thread, so that messages wait while it is busy.
  void deliver(korvel::ObjectRef notifier, std::uint32_t messageType, std::uintptr_t argument) {
    Callback found;
    {
      const std::lock_guard lock(mutex);
      const auto known = callbacks.find(notifier);
      if (known == callbacks.end()) return;
      found = known->second;
    }
    found.function(found.refcon, 0, messageType, argument);
  }

 private:
  struct Callback {
    korvel::InterestCallback function = nullptr;
    void* refcon = nullptr;
  };
  std::mutex mutex;
  std::map<korvel::ObjectRef, Callback> callbacks;
};

}  // namespace virtualmac
