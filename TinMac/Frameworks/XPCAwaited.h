#pragma once

#include <dispatch/dispatch.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "TinMac/Frameworks/Below.h"
#import "TinMac/Frameworks/XPCClientTypes.h"

namespace tinmac {

/// A message whose sender waits for its reply or its failure.
class AwaitedMessage {
 public:
  AwaitedMessage() : ended(tinSemaphoreMake(0)) {}
  AwaitedMessage(const AwaitedMessage&) = delete;
  AwaitedMessage& operator=(const AwaitedMessage&) = delete;
  ~AwaitedMessage() { tinSemaphoreFree(ended); }

  /// Once, on a thread of the connection. Without values it failed.
  void end(std::unique_ptr<ReplyValues> values, std::int64_t code) {
    reply = std::move(values);
    failure = code;
    tinSemaphoreSignal(ended);
  }
  /// The sender may read the rest afterwards.
  void wait() { tinSemaphoreWait(ended, DISPATCH_TIME_FOREVER); }
  [[nodiscard]] const ReplyValues* values() const { return reply.get(); }
  [[nodiscard]] std::int64_t code() const { return failure; }

 private:
  void* ended;
  std::unique_ptr<ReplyValues> reply;
  std::int64_t failure = 0;
};

}  // namespace tinmac
