#pragma once

#include <functional>
#include <map>
#include <string>

#include "TinMac/System/DispatchObject.h"

namespace tinmac {

using Work = std::function<void()>;

/// A queue of work, run one piece at a time, in order. Work that is queued keeps its queue alive.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): the object deletes itself
class DispatchQueue : public DispatchObject {
 public:
  virtual void async(Work work) = 0;
  /// Runs `work` when its turn has come and returns when it is done. Traps on a thread that runs a
  /// piece of this queue's work already.
  void sync(const Work& work);

  void setSpecific(const void* key, void* value, DispatchFunction destructor);
  [[nodiscard]] void* specific(const void* key) const;

  /// The queue whose work the calling thread runs; null: none. The main thread always runs the main
  /// queue's.
  static DispatchQueue* current();

 protected:
  /// While it lives the thread runs work of the queue.
  class Turn {
   public:
    explicit Turn(DispatchQueue& taken);
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn();

   private:
    friend class DispatchQueue;
    DispatchQueue* queue;
    Turn* outer;
  };

  using DispatchObject::DispatchObject;
  ~DispatchQueue() override;

  virtual void runInTurn(const Work& work) = 0;

 private:
  struct Specific {
    void* value = nullptr;
    DispatchFunction destructor = nullptr;
  };

  bool runsOnThisThread() const;

  mutable std::mutex specificsMutex;
  std::map<const void*, Specific> specifics;
};

/// A new serial queue with a thread of its own. `qualityOfService` is the class's name.
DispatchQueue* makeSerialQueue(const std::string& label, const std::string& qualityOfService);

/// The queue that the main loop serves. References to it do not count.
DispatchQueue& mainQueue();

}  // namespace tinmac
