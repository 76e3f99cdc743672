#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Base/ErrorObject.h"
#include "Base/Trap.h"

namespace korvel {

/// The way of a reply to its client. The transport that delivered the call makes one for each call.
template <class... Values>
class ReplySink {
 public:
  virtual ~ReplySink() = default;
  /// Carries the reply to the client. Called at most once, on any thread.
  virtual void deliver(Values... values) = 0;
  /// The reply was dropped without an answer. Only a process that is being torn down does that.
  virtual void abandoned() { trap("a reply was dropped without being called"); }
};

/// The answer to one call: move-only, and called exactly once.
template <class... Values>
class BasicReply {
 public:
  explicit BasicReply(std::unique_ptr<ReplySink<Values...>> destination)
      : sink(std::move(destination)) {}
  BasicReply(BasicReply&&) noexcept = default;
  BasicReply& operator=(BasicReply&&) = delete;
  ~BasicReply() {
    if (sink) sink->abandoned();
  }

  void operator()(Values... values) {
    if (!sink) trap("a reply was called twice");
    const std::unique_ptr<ReplySink<Values...>> once = std::move(sink);
    once->deliver(std::move(values)...);
  }

 private:
  std::unique_ptr<ReplySink<Values...>> sink;
};

/// Success flag and the error of a failure; (false, none) says that the core is gone.
using Reply = BasicReply<bool, std::optional<ErrorObject>>;
/// A payload of bytes, empty when it could not be made.
using DataReply = BasicReply<std::string>;
/// A process identifier.
using PidReply = BasicReply<std::uint64_t>;

/// A sink from a function, for transports and tests.
template <class... Values>
class FunctionReplySink final : public ReplySink<Values...> {
 public:
  explicit FunctionReplySink(std::function<void(Values...)> function) : body(std::move(function)) {}
  void deliver(Values... values) override { body(std::move(values)...); }

 private:
  std::function<void(Values...)> body;
};

}  // namespace korvel
