#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace korvel {

/// A move-only piece of work, run at most once. std::function cannot hold a move-only Reply, and
/// the libraries we build against have no move_only_function in common.
class Task {
 public:
  Task() = default;

  template <class Body>
    requires(!std::is_same_v<std::remove_cvref_t<Body>, Task>)
  Task(Body&& body)  // NOLINT(google-explicit-constructor): a lambda is a task
      : held(std::make_unique<Holder<std::remove_cvref_t<Body>>>(std::forward<Body>(body))) {}

  /// Runs the work and drops it, captures included.
  void operator()() {
    const std::unique_ptr<Base> once = std::move(held);
    once->run();
  }

  explicit operator bool() const { return held != nullptr; }

 private:
  struct Base {
    virtual ~Base() = default;
    virtual void run() = 0;
  };

  template <class Body>
  struct Holder final : Base {
    template <class Source>
    explicit Holder(Source&& source) : body(std::forward<Source>(source)) {}
    void run() override { body(); }
    Body body;
  };

  std::unique_ptr<Base> held;
};

}  // namespace korvel
