#pragma once

#include <condition_variable>

#include "TinMac/System/DispatchObject.h"
#include "TinMac/System/DispatchTime.h"

namespace tinmac {

/// Counts pieces of work, for threads that wait until all are done. Any thread.
class DispatchGroup final : public DispatchObject {
 public:
  DispatchGroup() : DispatchObject("dispatch_group") {}

  void enter();
  /// Traps when nothing was entered.
  void leave();
  /// False: the machine's clock reached `until` first. Unless it has reached it already, a wait
  /// lasts 250 real milliseconds at least: the machine's time may run faster than its program.
  bool wait(DispatchTime until);

 private:
  struct Deadline;

  bool waitUntil(DispatchTime until);
  /// Traps while something is entered.
  void abandoned() override;
  void dispose() override;

  std::mutex mutex;
  std::condition_variable changed;
  std::int64_t entered = 0;
};

}  // namespace tinmac
